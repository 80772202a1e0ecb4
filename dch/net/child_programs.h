// child_programs.h: the programs of actions, as children of this process.
#ifndef DCH_NET_CHILD_PROGRAMS_H
#define DCH_NET_CHILD_PROGRAMS_H

#include <functional>
#include <unordered_map>

#include "dch/core/programs.h"
#include "dch/net/child_program.h"

namespace dch {

// Programs that still run when it is destroyed are ended with SIGTERM. One thread.
class ChildPrograms : public Programs {
 public:
  std::string start(ZORA_Long id, const ActionCommand& command) override;

  // Calls `tell` for each program that has ended; it starts no other. To be called when the
  // system has sent SIGCHLD.
  using Tell = std::function<void(ZORA_Long id, ZORA_Long result)>;
  void collect(const Tell& tell);

 private:
  // Empty until its program runs: one that runs cannot be given up for want of memory.
  std::unordered_map<ZORA_Long, std::optional<ChildProgram>> _running;
};

}  // namespace dch

#endif  // DCH_NET_CHILD_PROGRAMS_H
