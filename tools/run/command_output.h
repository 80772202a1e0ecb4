// command_output.h: what a running command prints, as long as it has time.
#ifndef TOOLS_RUN_COMMAND_OUTPUT_H
#define TOOLS_RUN_COMMAND_OUTPUT_H

#include <chrono>
#include <cstddef>
#include <optional>

#include "tools/run/end_event.h"
#include "tools/run/running_command.h"

namespace tools {

// How long a command may take.
struct Patience {
  std::optional<std::chrono::milliseconds> time;
  bool isForEachLine = false;  // or for the whole run
};

// Of its functions those that wait throw EndHasBegun. One thread.
class CommandOutput {
 public:
  using Clock = EndEvent::Clock;
  // Keeps references to the first two.
  CommandOutput(const RunningCommand& command, const EndEvent& end, Patience patience);

  // Waits for output and stores it. Returns 0 at its end: when nobody has it open any more, when
  // the shell has ended and nothing is left to read, and when the time has run out.
  std::size_t read(char* bytes, std::size_t room);

  // After the output's end: waits for that of the shell, or until the time has run out.
  void waitForShell();

  bool hasTimedOut() const { return _hasTimedOut; }

  // Whether nobody has the output open any more, and all of it was read.
  bool isAtEnd() const { return _isAtEnd; }

  // So long the command was not waited for, but something else.
  void excuse(Clock::duration time);

  // Throws away what comes until the shell has ended and nobody has the output open any more, or
  // until then. Returns whether that is so. Does not throw.
  bool drain(Clock::time_point until) const;

  bool hasShellEnded() const;

 private:
  const RunningCommand& _command;
  const EndEvent& _end;
  Patience _patience;
  Clock::time_point _deadline = Clock::time_point::max();
  std::size_t _readSinceEnd = 0;  // since the shell's, or that of the time
  bool _hasTimedOut = false;
  bool _isAtEnd = false;
};

}  // namespace tools

#endif  // TOOLS_RUN_COMMAND_OUTPUT_H
