#include "suite/trc1_sink.h"

#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>

#include "suite/cancellation.h"
#include "suite/locking.h"

// Nothing in this file is destroyed: detached threads trace while the process ends.

namespace {

// One write takes all of it, as a rule; the rest of a short one follows.
void writeAll(int descriptor, const char* bytes, std::size_t count) {
  while (count > 0) {
    const ssize_t written = write(descriptor, bytes, count);
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return;
    bytes += written;
    count -= static_cast<std::size_t>(written);
  }
}

constinit std::mutex sinkMutex;
const suite::HeldWhileForking<sinkMutex> sinkHeldWhileForking;

// Where records go: the sink, else the file, else standard error.
class Output {
 public:
  void write(const TRC1_Record& record, const char* line, std::size_t lineLength) {
    if (_hasSink.load(std::memory_order_acquire) && writeToSink(record)) return;
    writeAll(descriptor(), line, lineLength);
  }

  void setSink(TRC1_Sink sink, void* context) {
    const std::lock_guard lock(sinkMutex);
    _sink = sink;
    _context = context;
    _hasSink.store(sink != nullptr, std::memory_order_release);
  }

 private:
  bool writeToSink(const TRC1_Record& record) {
    const suite::Lock lock(sinkMutex);
    if (!lock.isHeld() || _sink == nullptr) return false;
    _sink(_context, record);
    return true;
  }

  int descriptor() {
    int found = _descriptor.load(std::memory_order_acquire);
    if (found != notOpen) return found;
    const suite::Lock lock(sinkMutex);
    if (!lock.isHeld()) return STDERR_FILENO;
    found = _descriptor.load(std::memory_order_relaxed);
    if (found == notOpen) {
      found = openFile();
      _descriptor.store(found, std::memory_order_release);
    }
    return found;
  }

  static int openFile() {
    const char* path = std::getenv("ZORA_TRACE_FILE");
    if (path == nullptr || *path == '\0') return STDERR_FILENO;
    const int opened = open(path, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644);
    if (opened >= 0) return opened;
    suite::complain("ZORA_TRACE_FILE: cannot append to <%s>, errno=%d; tracing to standard error\n",
                    path, errno);
    return STDERR_FILENO;
  }

  static constexpr int notOpen = -1;

  std::atomic<int> _descriptor{notOpen};
  std::atomic<bool> _hasSink{false};
  TRC1_Sink _sink = nullptr;
  void* _context = nullptr;
};

constinit Output output;

}  // namespace

void suite::complain(const char* format, ...) {
  const CancellationOff cancellationOff;  // what is complained of is said once
  char line[512];
  std::va_list arguments;
  va_start(arguments, format);
  const int length = std::vsnprintf(line, sizeof line, format, arguments);
  va_end(arguments);
  if (length > 0) writeAll(STDERR_FILENO, line, std::strlen(line));
}

void suite::writeRecord(const TRC1_Record& record, const char* line, std::size_t lineLength) {
  output.write(record, line, lineLength);
}

void TRC1_SetSink(TRC1_Sink sink, void* context) {
  output.setSink(sink, context);
}
