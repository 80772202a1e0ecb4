#include "tools/run/command_output.h"

#include <poll.h>
#include <unistd.h>

#include <string_view>

namespace tools {
namespace {

// The most that a pipe holds, unless root wants more.
constexpr std::size_t pipeBytes = 1 << 20;

}  // namespace

CommandOutput::CommandOutput(const RunningCommand& command, const EndEvent& end, Patience patience)
    : _command(command), _end(end), _patience(patience) {
  if (_patience.time) _deadline = Clock::now() + *_patience.time;
}

std::size_t CommandOutput::read(char* bytes, std::size_t room) {
  for (;;) {
    pollfd watched[] = {{_end.descriptor(), POLLIN, 0},
                        {_command.shell(), POLLIN, 0},
                        {_command.output(), POLLIN, 0}};
    const int ready = poll(watched, 3, millisecondsUntil(_deadline));
    _end.check();
    if (ready < 0) continue;
    // What was printed before the shell has ended, or in time, is all there then, also when this
    // process could not read it sooner; more is of what the shell left behind, or is late.
    const bool hasEnded = watched[1].revents != 0;
    const bool isLate = Clock::now() >= _deadline;
    if (!hasEnded && !isLate) _readSinceEnd = 0;
    if ((isLate && watched[2].revents == 0) || _readSinceEnd > pipeBytes) {
      _hasTimedOut = !hasEnded;
      return 0;
    }
    const ssize_t count = ::read(_command.output(), bytes, room);
    _isAtEnd = count == 0;
    if (_isAtEnd || (count < 0 && hasEnded)) return 0;
    if (count < 0) continue;
    const auto size = static_cast<std::size_t>(count);
    if (_patience.time && _patience.isForEachLine &&
        std::string_view(bytes, size).find('\n') != std::string_view::npos)
      _deadline = Clock::now() + *_patience.time;
    if (hasEnded || isLate) _readSinceEnd += size;
    return size;
  }
}

void CommandOutput::waitForShell() {
  while (!_hasTimedOut && !hasShellEnded()) {
    pollfd watched[] = {{_end.descriptor(), POLLIN, 0}, {_command.shell(), POLLIN, 0}};
    poll(watched, 2, millisecondsUntil(_deadline));
    _end.check();
    _hasTimedOut = !hasShellEnded() && Clock::now() >= _deadline;
  }
}

void CommandOutput::excuse(Clock::duration time) {
  if (_patience.time) _deadline += time;
}

bool CommandOutput::drain(Clock::time_point until) const {
  for (bool isOpen = true; isOpen || !hasShellEnded();) {
    // A descriptor below 0 is not watched.
    pollfd watched[] = {{hasShellEnded() ? -1 : _command.shell(), POLLIN, 0},
                        {isOpen ? _command.output() : -1, POLLIN, 0}};
    poll(watched, 2, millisecondsUntil(until));
    char bytes[4096];
    if (watched[1].revents != 0) isOpen = ::read(_command.output(), bytes, sizeof bytes) != 0;
    if (Clock::now() >= until) return !isOpen && hasShellEnded();
  }
  return true;
}

bool CommandOutput::hasShellEnded() const {
  pollfd shell{_command.shell(), POLLIN, 0};
  return poll(&shell, 1, 0) > 0;
}

}  // namespace tools
