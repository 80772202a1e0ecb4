// server_under_fault.h: the real program in which something fails, and clients that use all of it.
#ifndef DCH_TESTKIT_SERVER_UNDER_FAULT_H
#define DCH_TESTKIT_SERVER_UNDER_FAULT_H

#include <functional>
#include <optional>
#include <string>

#include "tests/support/process.h"
#include "tests/support/temporary_files.h"
#include "zora/zora.h"

namespace dch::testkit {

// Each run has a state of its own, and expects that the program ends with a sentence before it is
// ready, or does all that is asked, some of it again, loses nothing, and ends when it is told to.
class ServerUnderFault {
 public:
  ServerUnderFault();

  // Starts `program` with these arguments and the server's behind them. `whenReady` is called when
  // it is. Returns whether it came to that.
  bool run(
      const std::string& program, Process::Arguments arguments,
      const Process::Environment& environment = {},
      const std::function<void()>& whenReady = [] {}) const;

  std::string path(const char* name) const { return _folder.path() + '/' + name; }

 private:
  void removeState() const;
  static std::optional<int> portOf(Process* server);
  static void expectASentence(Process* server);
  void useAndEnd(Process* server, int port) const;
  void expectEverythingIsKept(ZORA_Long handle) const;

  const TemporaryFolder _folder;
};

}  // namespace dch::testkit

#endif  // DCH_TESTKIT_SERVER_UNDER_FAULT_H
