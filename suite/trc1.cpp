#include "suite/trc1.h"

#include <fcntl.h>
#include <fnmatch.h>
#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <new>
#include <string>
#include <string_view>
#include <vector>

#include "suite/cancellation.h"
#include "suite/locking.h"
#include "suite/trimmed.h"

// Nothing in this file is destroyed: detached threads trace while the process ends.

namespace {

// A trace line often stands between a system call and its error handling.
class ErrnoKeeper {
 public:
  ErrnoKeeper() = default;
  ~ErrnoKeeper() { errno = _kept; }
  ErrnoKeeper(const ErrnoKeeper&) = delete;
  ErrnoKeeper& operator=(const ErrnoKeeper&) = delete;

 private:
  const int _kept = errno;
};

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

// What the facility has to say about its own settings goes to standard error.
[[gnu::format(printf, 1, 2)]] void complain(const char* format, ...) {
  char line[512];
  std::va_list arguments;
  va_start(arguments, format);
  const int length = std::vsnprintf(line, sizeof line, format, arguments);
  va_end(arguments);
  if (length > 0) writeAll(STDERR_FILENO, line, std::strlen(line));
}

// ---- Rules -----------------------------------------------------------------------------------

constexpr unsigned defaultMask = TRC1_CLASS_ERROR;

struct Rule {
  std::string pattern;
  unsigned mask;
};

bool parseMask(std::string_view text, unsigned* mask) {
  int base = 10;
  if (text.starts_with("0x") || text.starts_with("0X")) {
    base = 16;
    text.remove_prefix(2);
  }
  const char* end = text.data() + text.size();
  const auto [stopped, error] = std::from_chars(text.data(), end, *mask, base);
  return error == std::errc() && stopped == end;
}

std::vector<Rule> parseRules(std::string_view text) {
  std::vector<Rule> rules;
  while (!text.empty()) {
    const std::size_t comma = text.find(',');
    const std::string_view item = trimmed(text.substr(0, comma));
    text.remove_prefix(comma == std::string_view::npos ? text.size() : comma + 1);
    if (item.empty()) continue;

    // A mask holds no '=', the name of an operator may.
    const std::size_t equals = item.rfind('=');
    const bool isBareMask = equals == std::string_view::npos;
    const std::string_view pattern = isBareMask ? "" : trimmed(item.substr(0, equals));
    unsigned mask = 0;
    if (parseMask(isBareMask ? item : trimmed(item.substr(equals + 1)), &mask))
      rules.push_back({std::string(pattern.empty() ? "*" : pattern), mask});
    else
      complain("ZORA_TRACE: rule <%.*s> skipped: its mask is not a number such as 64 or 0x40\n",
               static_cast<int>(std::min<std::size_t>(item.size(), 300)), item.data());
  }
  return rules;
}

class Rules {
 public:
  // Returns false, and changes nothing, without memory.
  bool set(const char* text) {
    try {
      auto* rules = new std::vector<Rule>(parseRules(text != nullptr ? text : ""));
      delete _rules;
      _rules = rules;
    } catch (const std::bad_alloc&) {
      complain("ZORA_TRACE: no memory for the rules\n");
      return false;
    }
    return true;
  }

  unsigned maskOf(const TRC1_Block& block) const {
    if (_rules == nullptr) return defaultMask;
    char name[256];
    std::snprintf(name, sizeof name, "%s/%s", block.unit->name, block.function);
    for (auto rule = _rules->rbegin(); rule != _rules->rend(); ++rule)
      if (fnmatch(rule->pattern.c_str(), name, 0) == 0) return rule->mask;
    return defaultMask;
  }

 private:
  std::vector<Rule>* _rules = nullptr;
};

// ---- Configuration ---------------------------------------------------------------------------

// Rules in force, the stamp that stands for them, and the units whose functions cache masks.
class Configuration {
 public:
  unsigned sync(TRC1_Block* block) {
    const suite::Lock lock(mutex);
    if (!lock.isHeld()) return defaultMask;  // for this call; the next one asks again
    readEnvironmentOnce();
    enlist(block->unit);
    const unsigned flags = _rules.maskOf(*block);
    // In this order: whoever sees the stamp sees the flags that belong to it, or newer ones.
    block->flags.store(flags, std::memory_order_relaxed);
    block->stamp.store(_stamp, std::memory_order_release);
    return flags;
  }

  void configure(const char* rules) {
    const suite::Lock lock(mutex);
    if (!lock.isHeld() || !_rules.set(rules)) return;
    _isConfigured = true;
    if (++_stamp == neverSynced) ++_stamp;
    for (TRC1_Unit* unit = _units; unit != nullptr; unit = unit->nextEnlisted)
      unit->stamp.store(_stamp, std::memory_order_relaxed);
  }

  std::mutex mutex;

 private:
  static constexpr unsigned neverSynced = 0;  // the stamp of a fresh block

  void readEnvironmentOnce() {
    if (_isConfigured) return;
    _isConfigured = true;
    _rules.set(std::getenv("ZORA_TRACE"));
  }

  void enlist(TRC1_Unit* unit) {
    if (unit->isEnlisted) return;
    unit->isEnlisted = true;
    unit->nextEnlisted = _units;
    _units = unit;
    unit->stamp.store(_stamp, std::memory_order_relaxed);
  }

  Rules _rules;
  bool _isConfigured = false;
  unsigned _stamp = 1;
  TRC1_Unit* _units = nullptr;
};

constinit Configuration configuration;

// ---- Records ---------------------------------------------------------------------------------

// Where records go: the sink, else the file, else standard error.
class Output {
 public:
  void write(const TRC1_Record& record, const char* line, std::size_t lineLength) {
    if (_hasSink.load(std::memory_order_acquire) && writeToSink(record)) return;
    if (_hasFilter.load(std::memory_order_acquire) && !isWanted(record)) return;
    writeAll(descriptor(), line, lineLength);
  }

  void setSink(TRC1_Sink sink, void* context) {
    const std::lock_guard lock(sinkMutex);
    _sink = sink;
    _context = context;
    _hasSink.store(sink != nullptr, std::memory_order_release);
  }

  void setFilter(TRC1_Filter filter, void* context) {
    const std::lock_guard lock(sinkMutex);
    _filter = filter;
    _filterContext = context;
    _hasFilter.store(filter != nullptr, std::memory_order_release);
  }

  std::mutex sinkMutex;

 private:
  bool writeToSink(const TRC1_Record& record) {
    const suite::Lock lock(sinkMutex);
    if (!lock.isHeld() || _sink == nullptr) return false;
    _sink(_context, record);
    return true;
  }

  bool isWanted(const TRC1_Record& record) {
    const suite::Lock lock(sinkMutex);
    return !lock.isHeld() || _filter == nullptr || _filter(_filterContext, record);
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
    complain("ZORA_TRACE_FILE: cannot append to <%s>, errno=%d; tracing to standard error\n", path,
             errno);
    return STDERR_FILENO;
  }

  static constexpr int notOpen = -1;

  std::atomic<int> _descriptor{notOpen};
  std::atomic<bool> _hasSink{false};
  TRC1_Sink _sink = nullptr;
  void* _context = nullptr;
  std::atomic<bool> _hasFilter{false};
  TRC1_Filter _filter = nullptr;
  void* _filterContext = nullptr;
};

constinit Output output;

// A child must not inherit a lock that a thread of its parent holds.
thread_local bool isConfigurationLocked = false;
thread_local bool isSinkLocked = false;

void lockForFork() {
  isConfigurationLocked = suite::locked(configuration.mutex);
  isSinkLocked = suite::locked(output.sinkMutex);
}
void unlockAfterFork() {
  if (isSinkLocked) output.sinkMutex.unlock();
  if (isConfigurationLocked) configuration.mutex.unlock();
}
[[maybe_unused]] const int forkHandlers =
    pthread_atfork(lockForFork, unlockAfterFork, unlockAfterFork);

// Writes "2026-01-31T23:59:59.123456Z PID.TID COMPONENT FUNCTION:LINE " and returns its length. The
// calendar is worked out here: the C library's own takes a lock that a forked child may find held.
std::size_t formatPrefix(char* out, std::size_t size, const TRC1_Block& block, int line) {
  using namespace std::chrono;
  const auto now = floor<microseconds>(system_clock::now());
  const auto today = floor<days>(now);
  const year_month_day date(today);
  const hh_mm_ss time(now - today);
  const int length = std::snprintf(
      out, size, "%04d-%02u-%02uT%02d:%02d:%02d.%06dZ %ld.%ld %s %s:%d ",
      static_cast<int>(date.year()), static_cast<unsigned>(date.month()),
      static_cast<unsigned>(date.day()), static_cast<int>(time.hours().count()),
      static_cast<int>(time.minutes().count()), static_cast<int>(time.seconds().count()),
      static_cast<int>(time.subseconds().count()), static_cast<long>(getpid()),
      static_cast<long>(gettid()), block.unit->component, block.function, line);
  if (length < 0) return 0;
  return static_cast<std::size_t>(length) < size ? static_cast<std::size_t>(length) : size - 1;
}

void writeRecord(const TRC1_Block& block, int line, const char* format, std::va_list arguments) {
  // A traced function may hold what only its next line gives back.
  const suite::CancellationOff cancellationOff;
  constexpr std::size_t usualSize = 1024;
  constexpr std::size_t maxPrefix = 512;
  char usual[usualSize];
  const std::size_t prefix = formatPrefix(usual, maxPrefix, block, line);

  std::va_list again;
  va_copy(again, arguments);
  char* record = usual;
  std::unique_ptr<char[]> longer;
  std::size_t textLength = 0;
  const int needed = std::vsnprintf(usual + prefix, usualSize - prefix, format, arguments);
  if (needed > 0) textLength = static_cast<std::size_t>(needed);
  if (prefix + textLength >= usualSize) {
    longer.reset(new (std::nothrow) char[prefix + textLength + 1]);
    if (longer != nullptr) {
      record = longer.get();
      std::memcpy(record, usual, prefix);
      std::vsnprintf(record + prefix, textLength + 1, format, again);
    } else {
      textLength = usualSize - prefix - 1;
    }
  }
  va_end(again);

  output.write(
      {block.unit->component, block.unit->name, block.function, line, record + prefix, textLength},
      record, prefix + textLength);
}

}  // namespace

unsigned TRC1_Sync(TRC1_Block* block) {
  const ErrnoKeeper errnoKeeper;
  return configuration.sync(block);
}

void TRC1_Configure(const char* rules) {
  const ErrnoKeeper errnoKeeper;
  configuration.configure(rules);
}

void TRC1_SetSink(TRC1_Sink sink, void* context) {
  output.setSink(sink, context);
}

void TRC1_SetFilter(TRC1_Filter filter, void* context) {
  output.setFilter(filter, context);
}

void TRC1_Printf(TRC1_Block* block, int line, const char* format, ...) {
  const ErrnoKeeper errnoKeeper;
  std::va_list arguments;
  va_start(arguments, format);
  writeRecord(*block, line, format, arguments);
  va_end(arguments);
}

void TRC1_PrintAddress(TRC1_Block* block, int line, const char* label, const void* address,
                       int length) {
  constexpr char digits[] = "0123456789abcdef";
  constexpr int maxLength = 256;  // the longest address that a slot of the server's queue keeps
  char hexadecimal[2 * maxLength + 1];
  const auto* bytes = static_cast<const unsigned char*>(address);
  char* out = hexadecimal;
  for (int i = 0; bytes != nullptr && i < length && i < maxLength; ++i) {
    *out++ = digits[bytes[i] >> 4];
    *out++ = digits[bytes[i] & 0xF];
  }
  *out = '\0';
  TRC1_Printf(block, line, "%s: clientAddr <%d<%s>>\n", label, length, hexadecimal);
}

void TRC1_Event(TRC1_Block* block, int line, TRC1_EventKind kind) {
  TRC1_Printf(block, line, "%s", kind == TRC1_ENTRY ? "<<Entry>>\n" : "<<Exit>>\n");
}

void TRC1_Event(TRC1_Block* block, int line, TRC1_EventKind, long long value) {
  TRC1_Printf(block, line, "<<Exit: %lld>>\n", value);
}

void TRC1_Event(TRC1_Block* block, int line, TRC1_EventKind, const char* value) {
  TRC1_Printf(block, line, "<<Exit: %s>>\n", value != nullptr ? value : "(null)");
}

void TRC1_Event(TRC1_Block* block, int line, TRC1_EventKind, const void* value) {
  TRC1_Printf(block, line, "<<Exit: %p>>\n", value);
}
