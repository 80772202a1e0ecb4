#include "tools/common/control_thread.h"

#include <gtest/gtest.h>
#include <sysexits.h>
#include <unistd.h>

#include <future>
#include <vector>

#include "tests/support/process.h"

namespace tools {
namespace {

using Clock = ControlThread::Clock;

TEST(ControlThread, TellsASignalToTheProcess) {
  std::promise<int> told;
  ControlThread thread([&](int signal) { told.set_value(signal); });
  kill(getpid(), SIGTERM);
  EXPECT_EQ(told.get_future().get(), SIGTERM);
}

TEST(ControlThread, TellsThatTheDeadlineHasPassed) {
  std::promise<int> told;
  const Clock::time_point start = Clock::now() + std::chrono::milliseconds(50);
  Clock::time_point deadline = start;
  ControlThread thread(
      [&](int signal) {
        told.set_value(signal);
        deadline = ControlThread::never();
      },
      [&] { return deadline; });
  EXPECT_EQ(told.get_future().get(), 0);
  EXPECT_GE(Clock::now(), start);
}

TEST(ControlThread, TellsEachDeadlineUntilASignalComes) {
  std::promise<int> stopped;
  int deadlines = 0;
  Clock::time_point deadline = Clock::now();
  ControlThread thread(
      [&](int signal) {
        if (signal != 0) stopped.set_value(deadlines);
        deadline += std::chrono::milliseconds(1);
        if (++deadlines == 3) kill(getpid(), SIGTERM);
      },
      [&] { return deadlines < 3 ? deadline : ControlThread::never(); });
  EXPECT_EQ(stopped.get_future().get(), 3);
}

TEST(ControlThread, ADeadlineThatMovedCountsAnew) {
  std::promise<void> told;
  std::vector<Clock::time_point> asked;
  bool isTold = false;
  ControlThread thread(
      [&](int) {
        isTold = true;
        told.set_value();
      },
      [&] {
        asked.push_back(Clock::now());
        if (isTold) return ControlThread::never();
        // Moves once, when it has nearly come.
        return asked[0] + std::chrono::milliseconds(asked.size() > 2 ? 90 : 30);
      });
  told.get_future().get();
  EXPECT_GE(Clock::now() - asked[0], std::chrono::milliseconds(90));
}

TEST(ControlThread, EndsWithoutHavingBeenToldAnything) {
  bool told = false;
  {
    ControlThread thread([&](int) { told = true; });
  }
  EXPECT_FALSE(told);
}

TEST(ControlThread, ASecondSignalEndsTheProcess) {
  const ProcessResult child = runInChild([] {
    std::promise<void> told;
    ControlThread thread([&](int) { told.set_value(); });
    kill(getpid(), SIGINT);
    told.get_future().get();
    kill(getpid(), SIGINT);
    pause();
    return EX_SOFTWARE;
  });
  EXPECT_EQ(child.exitStatus, 128 + SIGINT);
}

}  // namespace
}  // namespace tools
