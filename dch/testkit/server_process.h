// server_process.h: the real zordchd in a process of its own.
#ifndef DCH_TESTKIT_SERVER_PROCESS_H
#define DCH_TESTKIT_SERVER_PROCESS_H

#include <string>

#include "tests/support/process.h"

namespace dch::testkit {

class ServerProcess {
 public:
  using Arguments = Process::Arguments;

  // Starts zordchd on the port, or on a free one, after `prepare` in the new process, with these
  // variables on top of this process's environment, and waits until it is ready. Throws
  // std::runtime_error, with what it wrote, when it is not ready in time.
  explicit ServerProcess(const Arguments& moreArguments = {}, void (*prepare)() = nullptr,
                         int port = 0, const Process::Environment& environment = {});

  int port() const { return _port; }
  // Where its page is, once it has said so. Throws std::runtime_error when it has none.
  int pagePort();
  pid_t processId() const { return _process.id(); }

  std::string standardOutput() const { return _process.standardOutput(); }
  std::string standardError() const { return _process.standardError(); }
  // Waits until standard error holds the text, that many times; false when it does not in time.
  bool waitForError(const std::string& text, int times = 1);

  // Sends the signal and waits; a process that does not end in time is killed. Returns the exit
  // status, or minus the signal that ended it.
  int stop(int signal);

 private:
  Process _process;
  int _port;
};

// The program.
const char* serverPath();

// What the output of one that is ready says; `pagePortIn` when it has said where its page is.
int portIn(const std::string& output);
int pagePortIn(const std::string& output);

// Runs zordchd to its end.
ProcessResult runServer(const ServerProcess::Arguments& arguments,
                        const Process::Environment& environment = {});

}  // namespace dch::testkit

#endif  // DCH_TESTKIT_SERVER_PROCESS_H
