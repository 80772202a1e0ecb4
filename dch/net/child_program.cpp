#include "dch/net/child_program.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>
#include <utility>

#include "dch/net/signals.h"

namespace dch {

namespace {

constexpr ZORA_Long signalResultBase = 128;

void check(int error, const char* what) {
  if (error != 0) throw std::system_error(error, std::generic_category(), what);
}

class SpawnActions {
 public:
  SpawnActions() {
    check(posix_spawn_file_actions_init(&_actions), "spawn actions");
    int error = posix_spawn_file_actions_addopen(&_actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    // Libraries open theirs without a care: a program is not to have the server's connections.
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

// What the server ignores, its programs must not.
class SpawnAttributes {
 public:
  SpawnAttributes() {
    check(posix_spawnattr_init(&_attributes), "spawn attributes");
    sigset_t blocked, ignored;
    sigemptyset(&blocked);
    sigemptyset(&ignored);
    for (const int each : ignoredSignals) sigaddset(&ignored, each);
    // These only store what they are given.
    posix_spawnattr_setsigmask(&_attributes, &blocked);
    posix_spawnattr_setsigdefault(&_attributes, &ignored);
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

}  // namespace

ChildProgram::ChildProgram(const std::vector<std::string>& command) {
  std::vector<char*> arguments;
  arguments.reserve(command.size() + 1);
  for (const std::string& word : command) arguments.push_back(const_cast<char*>(word.c_str()));
  arguments.push_back(nullptr);
  const SpawnActions actions;
  const SpawnAttributes attributes;
  pid_t processId;
  check(posix_spawn(&processId, arguments[0], actions.get(), attributes.get(), arguments.data(),
                    environ),
        arguments[0]);
  _processId = processId;
}

ChildProgram::~ChildProgram() {
  // Until it is waited for nobody else can have its number.
  if (_processId != none) kill(-_processId, SIGTERM);
}

ChildProgram::ChildProgram(ChildProgram&& other) noexcept
    : _processId(std::exchange(other._processId, none)) {}

std::optional<ZORA_Long> ChildProgram::takeResult() {
  if (_processId == none) return std::nullopt;
  int status = 0;
  const pid_t ended = waitpid(_processId, &status, WNOHANG);
  const bool isUnknown = ended < 0 && errno == ECHILD;
  if (ended != _processId && !isUnknown) return std::nullopt;
  _processId = none;
  if (isUnknown) return signalResultBase;
  return WIFEXITED(status) ? ZORA_Long{WEXITSTATUS(status)}
                           : signalResultBase + ZORA_Long{WTERMSIG(status)};
}

}  // namespace dch
