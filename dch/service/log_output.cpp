#include "dch/service/log_output.h"

#include <poll.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <exception>
#include <mutex>
#include <string>
#include <system_error>
#include <utility>

#include "dch/journal.h"
#include "suite/threads.h"

namespace dch {

namespace {

// In pieces: a process that was stopped for a while has not waited for all that time.
constexpr std::chrono::milliseconds pieceOfLastWait{50};
constexpr int piecesOfLastWait = 20;

}  // namespace

// What waits, between those who write to the log and the thread.
class LogOutput::Queue : public std::enable_shared_from_this<LogOutput::Queue> {
 public:
  explicit Queue(int descriptor) : _descriptor(descriptor) {}

  // The first starts the thread. Throws std::system_error when there is none to be had, or
  // std::bad_alloc.
  void add(std::string&& text);
  void countDropped() noexcept;
  std::uint64_t dropped() const;

  // Lets the thread end when all is written, and waits for that, though not for long.
  void finish();

 private:
  using Lock = std::unique_lock<std::mutex>;

  void start();
  void run() noexcept;
  void writeNext(Lock* lock);
  bool tryWrite(std::string_view text) const;
  bool canTryAgain() const;

  const int _descriptor;
  std::atomic<bool> _isGivenUp{false};

  mutable std::mutex _mutex;  // guards what follows
  std::condition_variable _hasChanged;
  std::condition_variable _hasEnded;
  std::deque<std::string> _texts;
  std::size_t _bytes = 0;  // of these, and of the one that is being written
  std::uint64_t _dropped = 0;
  bool _isStarted = false;
  bool _isFinishing = false;
  bool _isOver = false;
};

// The thread owns the queue as well: it may have to be left behind.
void LogOutput::Queue::start() {
  using Owner = std::shared_ptr<Queue>;
  auto threads = std::make_unique<Owner>(shared_from_this());
  const auto entry = [](void* argument) -> void* {
    const std::unique_ptr<Owner> own(static_cast<Owner*>(argument));
    (*own)->run();
    return nullptr;
  };
  const int error = ZOR0_CreateThread(entry, threads.get(), 1, nullptr);
  if (error != 0)
    throw std::system_error(error, std::generic_category(), "cannot start the thread of the log");
  static_cast<void>(threads.release());  // the thread has it
  _isStarted = true;
}

// As long as there is any room, a text is taken: else a report that is long would be lost for a
// line that is just being written.
void LogOutput::Queue::add(std::string&& text) {
  {
    const std::lock_guard lock(_mutex);
    if (_bytes >= mostWaiting) {
      ++_dropped;
      return;
    }
    // Not before: what each request does takes longer in a process with several threads.
    if (!_isStarted) start();
    const std::size_t size = text.size();
    _texts.push_back(std::move(text));
    _bytes += size;
  }
  _hasChanged.notify_one();
}

void LogOutput::Queue::countDropped() noexcept {
  const std::lock_guard lock(_mutex);
  ++_dropped;
}

std::uint64_t LogOutput::Queue::dropped() const {
  const std::lock_guard lock(_mutex);
  return _dropped;
}

void LogOutput::Queue::finish() {
  Lock lock(_mutex);
  if (!_isStarted) return;
  _isFinishing = true;
  _hasChanged.notify_one();
  for (int i = 0; i < piecesOfLastWait && !_isOver; ++i)
    _hasEnded.wait_for(lock, pieceOfLastWait, [this] { return _isOver; });
  _isGivenUp = !_isOver;
}

// It asks for no memory.
void LogOutput::Queue::run() noexcept {
  Lock lock(_mutex);
  for (;;) {
    _hasChanged.wait(lock, [this] { return !_texts.empty() || _isFinishing; });
    if (_texts.empty() || _isGivenUp) break;
    writeNext(&lock);
  }
  _isOver = true;
  _hasEnded.notify_one();
}

// Each text with a call of its own: what the programs of actions write to the same place does not
// get into a line, and what cannot be written is lost alone.
void LogOutput::Queue::writeNext(Lock* lock) {
  const std::string text = std::move(_texts.front());
  _texts.pop_front();
  lock->unlock();
  const bool isWritten = tryWrite(text);
  lock->lock();
  _bytes -= text.size();
  if (!isWritten) ++_dropped;
}

bool LogOutput::Queue::tryWrite(std::string_view text) const {
  while (!text.empty()) {
    if (_isGivenUp) return false;
    const ssize_t count = ::write(_descriptor, text.data(), text.size());
    if (count > 0)
      text.remove_prefix(static_cast<std::size_t>(count));
    else if (count == 0 || !canTryAgain())
      return false;
  }
  return true;
}

// After a write that failed. Another program that has the descriptor too may have made it one that
// does not wait.
bool LogOutput::Queue::canTryAgain() const {
  if (errno == EINTR) return true;
  if (errno != EAGAIN) return false;
  pollfd watched{_descriptor, POLLOUT, 0};
  return poll(&watched, 1, -1) == 1 || errno == EINTR;
}

LogOutput::LogOutput(int descriptor)
    : _isJournal(isJournal(descriptor)), _queue(std::make_shared<Queue>(descriptor)) {}

LogOutput::~LogOutput() {
  _queue->finish();
}

void LogOutput::write(Priority priority, std::string_view lines) noexcept {
  try {
    _queue->add(_isJournal ? withPriority(priority, lines) : std::string(lines));
  } catch (const std::exception&) {
    countDropped();
  }
}

void LogOutput::countDropped() noexcept {
  _queue->countDropped();
}

std::uint64_t LogOutput::dropped() const {
  return _queue->dropped();
}

}  // namespace dch
