#include <gtest/gtest.h>
#include <sys/time.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <future>

#include "suite/osv1.h"
#include "suite/threads.h"
#include "tests/support/quickest.h"

namespace {

constexpr std::chrono::seconds patience{30};

struct Observation {
  bool isDetached;
  sigset_t blocked;
  pthread_t self;
};

// What a new thread sees of itself.
void* observe(void* argument) {
  Observation seen{};
  seen.self = pthread_self();
  pthread_attr_t attributes;
  pthread_getattr_np(seen.self, &attributes);
  int state = 0;
  pthread_attr_getdetachstate(&attributes, &state);
  pthread_attr_destroy(&attributes);
  seen.isDetached = state == PTHREAD_CREATE_DETACHED;
  pthread_sigmask(SIG_SETMASK, nullptr, &seen.blocked);
  static_cast<std::promise<Observation>*>(argument)->set_value(seen);
  return nullptr;
}

// The promise must outlive the detached thread, which may still be inside set_value.
std::promise<Observation>& newPromise() {
  return *new std::promise<Observation>;
}

TEST(CreateThread, StartsADetachedThreadWithAllSignalsBlocked) {
  static auto& promise = newPromise();
  pthread_t thread{};
  ASSERT_EQ(ZOR0_CreateThread(observe, &promise, 1, &thread), 0);
  auto future = promise.get_future();
  ASSERT_EQ(future.wait_for(patience), std::future_status::ready);
  const Observation seen = future.get();
  EXPECT_TRUE(seen.isDetached);
  EXPECT_TRUE(pthread_equal(seen.self, thread));
  for (const int signal : {SIGTERM, SIGINT, SIGHUP, SIGUSR1, SIGPIPE, SIGALRM, SIGCHLD})
    EXPECT_EQ(sigismember(&seen.blocked, signal), 1) << signal;
}

TEST(CreateThread, LeavesTheSignalsOfTheCallerAlone) {
  sigset_t mine;
  sigemptyset(&mine);
  sigaddset(&mine, SIGUSR2);
  pthread_sigmask(SIG_SETMASK, &mine, nullptr);

  static auto& promise = newPromise();
  ASSERT_EQ(ZOR0_CreateThread(observe, &promise, 1, nullptr), 0);
  auto future = promise.get_future();
  ASSERT_EQ(future.wait_for(patience), std::future_status::ready);

  sigset_t after;
  pthread_sigmask(SIG_SETMASK, nullptr, &after);
  EXPECT_EQ(sigismember(&after, SIGUSR2), 1);
  EXPECT_EQ(sigismember(&after, SIGTERM), 0);
}

TEST(Locks, AreReadyAfterInitialisation) {
  pthread_mutex_t mutex;
  pthread_cond_t condition;
  ASSERT_EQ(ZOR0_InitializeMutex(&mutex), 0);
  ASSERT_EQ(ZOR0_InitializeCondVar(&condition), 0);
  EXPECT_EQ(pthread_mutex_lock(&mutex), 0);
  timespec past{};
  EXPECT_EQ(pthread_cond_timedwait(&condition, &mutex, &past), ETIMEDOUT);
  EXPECT_EQ(pthread_mutex_unlock(&mutex), 0);
  EXPECT_EQ(pthread_cond_destroy(&condition), 0);
  EXPECT_EQ(pthread_mutex_destroy(&mutex), 0);
}

using Steady = std::chrono::steady_clock;

TEST(Sleep, CountsSeconds) {
  const Steady::time_point start = Steady::now();
  OSV1_Sleep(1);
  EXPECT_GE(Steady::now() - start, std::chrono::seconds(1));
}

TEST(Sleep, OfNothingOrLessReturnsAtOnce) {
  const auto sleep = [] {
    OSV1_Sleep(0);
    OSV1_Sleep(-5);
  };
  EXPECT_LT(quickest(1, [&] { return secondsOf(sleep); }), 1);
}

volatile std::sig_atomic_t alarms = 0;

TEST(Sleep, IsNotShortenedByASignal) {
  struct sigaction action {};
  action.sa_handler = [](int) { alarms = alarms + 1; };
  sigaction(SIGALRM, &action, nullptr);
  const itimerval soon{{0, 0}, {0, 100000}};
  const Steady::time_point start = Steady::now();
  setitimer(ITIMER_REAL, &soon, nullptr);
  OSV1_Sleep(1);
  EXPECT_GE(Steady::now() - start, std::chrono::seconds(1));
  EXPECT_EQ(alarms, 1);
}

TEST(Environment, IsReadByName) {
  setenv("ZORD410_TEST_VARIABLE", "value", 1);
  EXPECT_STREQ(OSV1_GetEnv("ZORD410_TEST_VARIABLE", 0), "value");
  unsetenv("ZORD410_TEST_VARIABLE");
  EXPECT_EQ(OSV1_GetEnv("ZORD410_TEST_VARIABLE", 0), nullptr);
}

}  // namespace
