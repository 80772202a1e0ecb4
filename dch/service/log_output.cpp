#include "dch/service/log_output.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <new>

#include "dch/journal.h"

namespace dch {

namespace {

mode_t kindOf(int descriptor) {
  struct stat status {};
  return fstat(descriptor, &status) == 0 ? status.st_mode & S_IFMT : 0;
}

// To make the descriptor itself one that does not wait would do so to all programs that share it.
Descriptor openAgain(int descriptor) {
  const mode_t kind = kindOf(descriptor);
  if (kind != S_IFIFO && kind != S_IFCHR) return {};
  const std::string path = "/proc/self/fd/" + std::to_string(descriptor);
  return Descriptor(open(path.c_str(), O_WRONLY | O_APPEND | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
}

// For what could not be opened again: how many of `size` bytes can be written without a wait, if
// nobody else writes meanwhile. A pipe that has room has it for so many.
std::size_t countForOneGo(int descriptor, std::size_t size) {
  pollfd watched{descriptor, POLLOUT, 0};
  if (poll(&watched, 1, 0) != 1) return 0;
  return kindOf(descriptor) == S_IFIFO ? std::min<std::size_t>(size, PIPE_BUF) : size;
}

}  // namespace

LogOutput::LogOutput(int descriptor)
    : _isJournal(isJournal(descriptor)),
      _isSocket(kindOf(descriptor) == S_IFSOCK),
      _own(openAgain(descriptor)),
      _descriptor(_own.isOpen() ? _own.get() : descriptor) {}

void LogOutput::write(Priority priority, std::string_view lines) noexcept {
  if (!_isJournal) return writeAsIs(lines);
  try {
    writeAsIs(withPriority(priority, lines));
  } catch (const std::bad_alloc&) {
    countDropped();
  }
}

void LogOutput::writeAsIs(std::string_view text) noexcept {
  const std::lock_guard lock(_mutex);
  writeKept();
  if (_kept.empty()) text.remove_prefix(tryWrite(text));
  try {
    if (_kept.size() + text.size() <= mostKept)
      _kept += text;
    else
      ++_dropped;
  } catch (const std::bad_alloc&) {
    ++_dropped;
  }
}

void LogOutput::flush() noexcept {
  const std::lock_guard lock(_mutex);
  writeKept();
}

void LogOutput::countDropped() noexcept {
  const std::lock_guard lock(_mutex);
  ++_dropped;
}

std::uint64_t LogOutput::dropped() const {
  const std::lock_guard lock(_mutex);
  return _dropped;
}

void LogOutput::writeKept() {
  if (_kept.empty()) return;
  _kept.erase(0, tryWrite(_kept));
  if (_kept.empty()) _kept = std::string();
}

// Returns how much is done with. What can never be written is.
std::size_t LogOutput::tryWrite(std::string_view text) {
  const std::size_t size = _own.isOpen() ? text.size() : countForOneGo(_descriptor, text.size());
  if (size == 0) return 0;
  const ssize_t count = _isSocket
                            ? send(_descriptor, text.data(), size, MSG_DONTWAIT | MSG_NOSIGNAL)
                            : ::write(_descriptor, text.data(), size);
  if (count >= 0) return static_cast<std::size_t>(count);
  if (errno == EAGAIN || errno == EINTR) return 0;
  ++_dropped;
  return text.size();
}

}  // namespace dch
