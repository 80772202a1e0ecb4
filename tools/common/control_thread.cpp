#include "tools/common/control_thread.h"

#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <utility>

namespace tools {
namespace {

// Sent by the destructor to the thread alone.
constexpr int endThreadSignal = SIGUSR1;

timespec limitUntil(ControlThread::Clock::time_point deadline) {
  using std::chrono::seconds;
  constexpr seconds longest = std::chrono::hours(24);
  const auto left = deadline - ControlThread::Clock::now();
  if (left >= longest) return {longest.count(), 0};
  const auto nanoseconds =
      std::max<std::int64_t>(0, std::chrono::duration_cast<std::chrono::nanoseconds>(left).count());
  return {nanoseconds / 1000000000, nanoseconds % 1000000000};
}

}  // namespace

ControlThread::ControlThread(Stop stop, Deadline deadline)
    : _stop(std::move(stop)), _deadline(std::move(deadline)) {
  sigemptyset(&_signals);
  for (const int signal : {SIGINT, SIGTERM, SIGHUP, endThreadSignal}) sigaddset(&_signals, signal);
  pthread_sigmask(SIG_BLOCK, &_signals, nullptr);
  _thread = std::thread(&ControlThread::run, this);
}

ControlThread::~ControlThread() {
  pthread_kill(_thread.native_handle(), endThreadSignal);
  _thread.join();
}

void ControlThread::run() {
  bool stopped = false;
  while (true) {
    const int signal = waitForSignal(stopped);
    if (signal == endThreadSignal) return;
    if (stopped && signal != 0) _exit(128 + signal);
    if (!stopped) _stop(signal);
    stopped = true;
  }
}

// Returns the signal, or 0 when the deadline has passed, which does not count once stopped.
int ControlThread::waitForSignal(bool stopped) {
  while (true) {
    const Clock::time_point deadline = stopped ? Clock::time_point::max() : _deadline();
    const timespec limit = limitUntil(deadline);
    const int signal = sigtimedwait(&_signals, nullptr, &limit);
    if (signal > 0) return signal;
    if (!stopped && Clock::now() >= _deadline()) return 0;
  }
}

}  // namespace tools
