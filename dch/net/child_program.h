// child_program.h: a program that runs for the server.
#ifndef DCH_NET_CHILD_PROGRAM_H
#define DCH_NET_CHILD_PROGRAM_H

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

#include "zora/zora.h"

namespace dch {

// Ends the program, and what it has started in its process group, with SIGTERM when it still runs.
class ChildProgram {
 public:
  // Starts `command`, a program's path and its arguments, without a shell: with an empty standard
  // input, no signal blocked, in a process group of its own. Throws std::system_error.
  explicit ChildProgram(const std::vector<std::string>& command);
  ~ChildProgram();
  ChildProgram(ChildProgram&& other) noexcept;
  ChildProgram& operator=(ChildProgram&&) = delete;

  // Its exit status, or 128 and the number of the signal that ended it; nothing while it runs. 128
  // when it has ended and the system does not know how any more.
  std::optional<ZORA_Long> takeResult();

 private:
  static constexpr pid_t none = -1;

  pid_t _processId = none;  // `none` once its result is taken
};

}  // namespace dch

#endif  // DCH_NET_CHILD_PROGRAM_H
