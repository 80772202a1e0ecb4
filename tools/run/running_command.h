// running_command.h: a command of the shell that runs, with all that it starts.
#ifndef TOOLS_RUN_RUNNING_COMMAND_H
#define TOOLS_RUN_RUNNING_COMMAND_H

#include <sys/types.h>

#include <string>

namespace tools {

// The command's processes are a process group. One thread at a time.
class RunningCommand {
 public:
  // Starts `/bin/sh -c LINE`: standard input is empty, standard output a pipe, standard error that
  // of this process; no other descriptor, no signal blocked or ignored, and without NOTIFY_SOCKET,
  // which is for this process alone. Throws std::system_error.
  explicit RunningCommand(const std::string& line);

  // Kills what is left of it.
  ~RunningCommand();
  RunningCommand(const RunningCommand&) = delete;
  RunningCommand& operator=(const RunningCommand&) = delete;

  // Where its output can be read, without waiting.
  int output() const { return _output; }
  // A descriptor that can be read once the shell has ended, whatever else of it still runs.
  int shell() const { return _shell; }

  // Sends SIGTERM, the first time that it is called.
  void askToEnd();
  void kill() const;

  // When the shell has ended: whether it did with status 0.
  bool hasEndedWell() const;
  // When the shell has ended: kills what it has left behind, and returns its status as waitpid(2)
  // does.
  int takeStatus();

 private:
  static constexpr pid_t none = -1;

  pid_t _id = none;  // `none` once its status is taken: the number may be another process's then
  int _output = -1;
  int _shell = -1;
  bool _isAskedToEnd = false;
};

// "status 3", "signal 9 (Killed)", and what a shell means by 126 and 127.
std::string describeEnd(int status);

}  // namespace tools

#endif  // TOOLS_RUN_RUNNING_COMMAND_H
