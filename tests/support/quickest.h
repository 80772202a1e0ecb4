// quickest.h: how long something takes, on a machine that has other things to do.
#ifndef TESTS_SUPPORT_QUICKEST_H
#define TESTS_SUPPORT_QUICKEST_H

#include <algorithm>
#include <chrono>
#include <limits>

// The seconds that an action takes.
template <class Action>
double secondsOf(Action action) {
  const auto start = std::chrono::steady_clock::now();
  action();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// The least of the seconds that up to five runs return. What the code does takes its time in every
// run; what else the machine does may hold up one or two. One of less than `enough` is the last.
template <class Run>
double quickest(double enough, Run run) {
  constexpr int mostRuns = 5;
  double seconds = std::numeric_limits<double>::infinity();
  for (int i = 0; i < mostRuns && seconds >= enough; ++i)
    seconds = std::min<double>(seconds, run());
  return seconds;
}

#endif  // TESTS_SUPPORT_QUICKEST_H
