// running_program.h: a program in a process of its own, to be talked to while it runs.
#ifndef TOOLS_TESTKIT_RUNNING_PROGRAM_H
#define TOOLS_TESTKIT_RUNNING_PROGRAM_H

#include <sys/types.h>

#include <condition_variable>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace tools {

struct ProgramResult {
  int exitStatus = -1;  // minus the signal's number when a signal ended it
  std::string standardOutput;
  std::string standardError;
};

class RunningProgram {
 public:
  using Arguments = std::vector<std::string>;
  using Environment = std::map<std::string, std::string>;
  enum class ErrorTo { pipe, terminal };

  // Starts the program at `path` with these arguments and, on top of this process's environment,
  // these variables. Its input stays open until closeInput() or finish().
  RunningProgram(const std::string& path, const Arguments& arguments,
                 const Environment& environment, ErrorTo errorTo = ErrorTo::pipe);
  // Ends it the hard way when it still runs.
  ~RunningProgram();
  RunningProgram(const RunningProgram&) = delete;
  RunningProgram& operator=(const RunningProgram&) = delete;

  void write(const std::string& input);
  void closeInput();

  // Wait until the output holds the text, that many times, and return all of it. Throw
  // std::runtime_error, with all that the program wrote, when it does not in time.
  std::string waitForOutput(const std::string& text, int times = 1) {
    return waitFor(&_result.standardOutput, text, times);
  }
  std::string waitForError(const std::string& text, int times = 1) {
    return waitFor(&_result.standardError, text, times);
  }

  void signal(int number);
  // Closes the input and waits for the end. A program that does not end in time is killed.
  ProgramResult finish();

 private:
  void killAll();
  void collect(int descriptor, std::string* target);
  std::string waitFor(const std::string* output, const std::string& text, int times);

  std::mutex _mutex;
  std::condition_variable _more;
  ProgramResult _result;
  int _openOutputs = 2;
  int _input = -1;
  std::thread _outputReader;
  std::thread _errorReader;
  pid_t _processId = -1;
};

}  // namespace tools

#endif  // TOOLS_TESTKIT_RUNNING_PROGRAM_H
