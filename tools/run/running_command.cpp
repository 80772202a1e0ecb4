#include "tools/run/running_command.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

namespace tools {
namespace {

constexpr char shellPath[] = "/bin/sh";
constexpr std::string_view forThisProcessAlone = "NOTIFY_SOCKET=";

void check(int error, const char* what) {
  if (error != 0) throw std::system_error(error, std::generic_category(), what);
}

class Pipe {
 public:
  Pipe() { check(pipe2(_ends, O_CLOEXEC) == 0 ? 0 : errno, "pipe"); }
  ~Pipe() {
    for (const int end : _ends)
      if (end >= 0) close(end);
  }
  Pipe(const Pipe&) = delete;
  Pipe& operator=(const Pipe&) = delete;

  int readEnd() const { return _ends[0]; }
  int writeEnd() const { return _ends[1]; }
  int takeReadEnd() { return std::exchange(_ends[0], -1); }

 private:
  int _ends[2];
};

class SpawnActions {
 public:
  explicit SpawnActions(int output) {
    check(posix_spawn_file_actions_init(&_actions), "spawn actions");
    int error = posix_spawn_file_actions_addopen(&_actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    if (error == 0) error = posix_spawn_file_actions_adddup2(&_actions, output, STDOUT_FILENO);
    if (error == 0) error = posix_spawn_file_actions_addclosefrom_np(&_actions, STDERR_FILENO + 1);
    if (error != 0) posix_spawn_file_actions_destroy(&_actions);
    check(error, "spawn actions");
  }
  ~SpawnActions() { posix_spawn_file_actions_destroy(&_actions); }
  SpawnActions(const SpawnActions&) = delete;
  SpawnActions& operator=(const SpawnActions&) = delete;

  const posix_spawn_file_actions_t* get() const { return &_actions; }

 private:
  posix_spawn_file_actions_t _actions;
};

class SpawnAttributes {
 public:
  SpawnAttributes() {
    check(posix_spawnattr_init(&_attributes), "spawn attributes");
    sigset_t none, all;
    sigemptyset(&none);
    sigfillset(&all);
    // These only store what they are given.
    posix_spawnattr_setsigmask(&_attributes, &none);
    posix_spawnattr_setsigdefault(&_attributes, &all);
    posix_spawnattr_setpgroup(&_attributes, 0);
    posix_spawnattr_setflags(
        &_attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETPGROUP);
  }
  ~SpawnAttributes() { posix_spawnattr_destroy(&_attributes); }
  SpawnAttributes(const SpawnAttributes&) = delete;
  SpawnAttributes& operator=(const SpawnAttributes&) = delete;

  const posix_spawnattr_t* get() const { return &_attributes; }

 private:
  posix_spawnattr_t _attributes;
};

// No thread changes the environment.
std::vector<char*> environmentOfCommands() {
  std::vector<char*> variables;
  for (char** each = environ; *each != nullptr; ++each)
    if (!std::string_view(*each).starts_with(forThisProcessAlone)) variables.push_back(*each);
  variables.push_back(nullptr);
  return variables;
}

}  // namespace

RunningCommand::RunningCommand(const std::string& line) {
  Pipe output;
  check(fcntl(output.readEnd(), F_SETFL, O_NONBLOCK) == 0 ? 0 : errno, "pipe");
  const SpawnActions actions(output.writeEnd());
  const SpawnAttributes attributes;
  std::string name = "sh", option = "-c", command = line;
  char* const arguments[] = {name.data(), option.data(), command.data(), nullptr};
  pid_t id = none;
  check(posix_spawn(&id, shellPath, actions.get(), attributes.get(), arguments,
                    environmentOfCommands().data()),
        shellPath);
  _shell = static_cast<int>(syscall(SYS_pidfd_open, id, 0));
  if (_shell < 0) {
    const int error = errno;
    ::kill(-id, SIGKILL);
    waitpid(id, nullptr, 0);
    check(error, "pidfd_open");
  }
  _id = id;
  _output = output.takeReadEnd();
}

RunningCommand::~RunningCommand() {
  if (_id != none) {
    kill();
    // One that a dead disk holds up does not hold this process up.
    waitpid(_id, nullptr, WNOHANG);
  }
  close(_output);
  close(_shell);
}

void RunningCommand::askToEnd() {
  if (_id != none && !_isAskedToEnd) ::kill(-_id, SIGTERM);
  _isAskedToEnd = true;
}

void RunningCommand::kill() const {
  if (_id != none) ::kill(-_id, SIGKILL);
}

bool RunningCommand::hasEndedWell() const {
  siginfo_t end{};
  const auto id = static_cast<id_t>(_id);
  return waitid(P_PID, id, &end, WEXITED | WNOHANG | WNOWAIT) == 0 && end.si_code == CLD_EXITED &&
         end.si_status == 0;
}

int RunningCommand::takeStatus() {
  kill();
  int status = 0;
  waitpid(_id, &status, 0);
  _id = none;
  return status;
}

std::string describeEnd(int status) {
  if (WIFSIGNALED(status)) {
    // Unlike strsignal() for any thread; null for some.
    const char* const name = sigdescr_np(WTERMSIG(status));
    return "signal " + std::to_string(WTERMSIG(status)) +
           (name != nullptr ? " (" + std::string(name) + ")" : "");
  }
  const int exitStatus = WEXITSTATUS(status);
  const char* const meaning = exitStatus == 127   ? " (not found)"
                              : exitStatus == 126 ? " (cannot be executed)"
                                                  : "";
  return "status " + std::to_string(exitStatus) + meaning;
}

}  // namespace tools
