// control_thread.h: takes the signals with which a user ends a tool, on a thread of its own.
//
// An interrupted wait for the DCH would count as a failed one, so no other thread may see them.
#ifndef TOOLS_COMMON_CONTROL_THREAD_H
#define TOOLS_COMMON_CONTROL_THREAD_H

#include <atomic>
#include <chrono>
#include <csignal>
#include <functional>
#include <thread>

namespace tools {

class ControlThread {
 public:
  using Clock = std::chrono::steady_clock;
  // What to do, on the control thread, when SIGINT, SIGTERM or SIGHUP comes, and, with signal 0,
  // whenever the deadline has passed before that.
  using Stop = std::function<void(int signal)>;
  // Asked anew before each wait. It has to move when it has passed.
  using Deadline = std::function<Clock::time_point()>;
  static Clock::time_point never() { return Clock::time_point::max(); }

  // Blocks those signals in the calling thread, the only one that the process has, and in all that
  // it starts later. A second signal ends the process at once with 128 and its number: whoever asks
  // twice does not want to wait until a hung request gives up.
  explicit ControlThread(Stop stop, Deadline deadline = never);

  // Ends the thread. The signals stay blocked.
  ~ControlThread();

 private:
  void run();
  int waitForSignal() const;

  Stop _stop;
  Deadline _deadline;
  sigset_t _signals;
  std::atomic<bool> _ending{false};
  std::thread _thread;
};

}  // namespace tools

#endif  // TOOLS_COMMON_CONTROL_THREAD_H
