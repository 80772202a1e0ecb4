#include "tools/common/control_thread.h"

#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <ctime>
#include <utility>

namespace tools {
namespace {

// Sent by the destructor to the thread.
constexpr int wakeSignal = SIGUSR1;

// The time to wait until the deadline, for a day at most.
timespec limitUntil(ControlThread::Clock::time_point deadline) {
  using namespace std::chrono;
  const auto left = std::clamp<nanoseconds>(deadline - ControlThread::Clock::now(),
                                            nanoseconds::zero(), hours(24));
  const auto wholeSeconds = duration_cast<seconds>(left);
  return {static_cast<std::time_t>(wholeSeconds.count()),
          static_cast<long>((left - wholeSeconds).count())};
}

}  // namespace

ControlThread::ControlThread(Stop stop, Deadline deadline)
    : _stop(std::move(stop)), _deadline(std::move(deadline)) {
  sigemptyset(&_signals);
  for (const int signal : {SIGINT, SIGTERM, SIGHUP, wakeSignal}) sigaddset(&_signals, signal);
  pthread_sigmask(SIG_BLOCK, &_signals, nullptr);
  _thread = std::thread(&ControlThread::run, this);
}

ControlThread::~ControlThread() {
  _ending = true;
  pthread_kill(_thread.native_handle(), wakeSignal);
  _thread.join();
}

void ControlThread::run() {
  for (bool stopped = false;;) {
    const int signal = waitForSignal();
    if (_ending) return;
    if (stopped) _exit(128 + signal);
    _stop(signal);
    if (signal == 0) continue;
    stopped = true;
    _deadline = never;
  }
}

// Returns the signal, or 0 when the deadline has passed or the thread has to end.
int ControlThread::waitForSignal() const {
  while (!_ending && Clock::now() < _deadline()) {
    const timespec limit = limitUntil(_deadline());
    const int signal = sigtimedwait(&_signals, nullptr, &limit);
    if (signal > 0 && signal != wakeSignal) return signal;
  }
  return 0;
}

}  // namespace tools
