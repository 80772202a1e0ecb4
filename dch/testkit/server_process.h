// server_process.h: the real zordchd in a process of its own.
#ifndef DCH_TESTKIT_SERVER_PROCESS_H
#define DCH_TESTKIT_SERVER_PROCESS_H

#include <sys/types.h>

#include <condition_variable>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace dch::testkit {

class ServerProcess {
 public:
  using Arguments = std::vector<std::string>;
  using Environment = std::map<std::string, std::string>;

  // Starts zordchd on a free port, after `prepare` in the new process, and waits until it is ready.
  // Throws std::runtime_error, with what it wrote, when it is not ready in time.
  explicit ServerProcess(const Arguments& moreArguments = {}, void (*prepare)() = nullptr);
  // Ends it the hard way when it still runs.
  ~ServerProcess();
  ServerProcess(const ServerProcess&) = delete;
  ServerProcess& operator=(const ServerProcess&) = delete;

  int port() const { return _port; }
  pid_t processId() const { return _processId; }

  std::string standardOutput() const;
  std::string standardError() const;
  // Waits until standard error holds the text, that many times; false when it does not in time.
  bool waitForError(const std::string& text, int times = 1);

  // Sends the signal and waits; a process that does not end in time is killed. Returns the exit
  // status, or minus the signal that ended it.
  int stop(int signal);

 private:
  void start(const Arguments& arguments, void (*prepare)());
  void collect(int descriptor, std::string* target);
  int wait();

  mutable std::mutex _mutex;
  std::condition_variable _more;
  std::string _standardOutput;
  std::string _standardError;
  int _openOutputs = 2;
  std::thread _outputReader;
  std::thread _errorReader;
  pid_t _processId = -1;
  int _port = 0;
};

// Runs zordchd to its end and collects its exit status and what it writes.
struct RunResult {
  int exitStatus;
  std::string standardOutput;
  std::string standardError;
};
RunResult runServer(const ServerProcess::Arguments& arguments,
                    const ServerProcess::Environment& environment = {});

}  // namespace dch::testkit

#endif  // DCH_TESTKIT_SERVER_PROCESS_H
