// process.h: a process that a test or a benchmark starts: a program, or a function of its own.
#ifndef TESTS_SUPPORT_PROCESS_H
#define TESTS_SUPPORT_PROCESS_H

#include <sys/types.h>

#include <chrono>
#include <condition_variable>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

struct ProcessResult {
  int exitStatus = -1;  // minus the signal's number when a signal ended it
  std::string standardOutput;
  std::string standardError;
  double seconds = 0;  // from its start to its end
};

// It is killed, with all that it started, when its object goes, and when the thread that made the
// object ends. Its functions may be called by several threads, but for finish().
class Process {
 public:
  using Arguments = std::vector<std::string>;
  using Environment = std::map<std::string, std::string>;
  // Where its outputs go: to this object, with standard error through a terminal or not, or where
  // those of this process go. Without captured outputs this process gets no other thread.
  enum class Output { captured, errorOnTerminal, inherited };

  // How long is waited for a text, or for an end that is due.
  static constexpr std::chrono::seconds longestWait{50};
  // The exit status when there is no such program.
  static constexpr int notFound = 127;

  // Starts the program at `path`, or of that name on the PATH, with these variables on top of this
  // process's environment, after `prepare` in the new process. Its input stays open until
  // closeInput() or finish(). Throws std::runtime_error when there is no process to be had.
  explicit Process(const std::string& path, const Arguments& arguments = {},
                   const Environment& environment = {}, Output output = Output::captured,
                   void (*prepare)() = nullptr);

  // Runs `body` in a fork of this process, which should have no other threads. It ends with the
  // status that `body` returns, or with 1 after an exception, whose text it writes to standard
  // error.
  explicit Process(const std::function<int()>& body, const Environment& environment = {},
                   Output output = Output::captured);

  ~Process();
  Process(const Process&) = delete;
  Process& operator=(const Process&) = delete;

  pid_t id() const { return _id; }

  void write(const std::string& input) const;
  void closeInput();

  // What it has written so far.
  std::string standardOutput() const;
  std::string standardError() const;

  // Wait until the output holds the text, that many times, and return all of it. Throw
  // std::runtime_error, with all that the program wrote, when it does not in time or has ended.
  std::string waitForOutput(const std::string& text, int times = 1) {
    return waitFor(_result.standardOutput, text, times);
  }
  std::string waitForError(const std::string& text, int times = 1) {
    return waitFor(_result.standardError, text, times);
  }

  void signal(int number) const;
  // Closes the input and waits for the end. A process that does not end in time is killed.
  ProcessResult finish(std::chrono::seconds longest = longestWait);

 private:
  void start(Output output, const std::function<void()>& inChild);
  bool ends(std::chrono::seconds longest);
  void killAll() const;
  void collect(int output, int error);
  std::string waitFor(const std::string& output, const std::string& text, int times);

  std::chrono::steady_clock::time_point _start;
  pid_t _id = -1;
  int _input = -1;
  mutable std::mutex _mutex;
  std::condition_variable _more;
  ProcessResult _result;
  bool _isWriting = false;
  std::thread _reader;
};

// Runs `body` in a process of its own to its end, because it ends its process, needs another
// environment, or must not touch this one's once-per-process state.
inline ProcessResult runInChild(const std::function<int()>& body,
                                const Process::Environment& environment = {}) {
  return Process(body, environment).finish();
}

#endif  // TESTS_SUPPORT_PROCESS_H
