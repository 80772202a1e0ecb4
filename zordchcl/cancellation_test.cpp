// Threads that the program cancels while they wait in the library: nothing is lost but the wait.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sched.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <functional>
#include <memory>
#include <random>
#include <stdexcept>
#include <vector>

#include "tests/support/process.h"
#include "tests/support/scripted_dch.h"
#include "tests/support/trace_capture.h"
#include "zora/trc1.h"
#include "zordchcl/zordchcl.h"
#include "zordsock/test_endpoint.h"

namespace {

constexpr int cancellations = 1000;
constexpr int poolSockets = 2;

// A thread that can be cancelled, which std::thread cannot.
class Thread {
 public:
  explicit Thread(std::function<void()> work) : _work(std::move(work)) {
    if (pthread_create(&_thread, nullptr, &Thread::run, this) != 0) std::abort();
  }
  void cancel() const { pthread_cancel(_thread); }
  bool endsCancelled() const {
    void* result = nullptr;
    pthread_join(_thread, &result);
    return result == PTHREAD_CANCELED;
  }

 private:
  static void* run(void* thread) {
    static_cast<Thread*>(thread)->_work();
    return nullptr;
  }

  const std::function<void()> _work;
  pthread_t _thread{};
};

int freePooledSockets() {
  int count = 0;
  for (int i = 0; i < poolSockets; ++i) count += zordsock::_UDPSockList[i].inUse == 0;
  return count;
}

ZORA_Long registeredStatus() {
  ZORA_Long status = -1;
  EXPECT_EQ(dp_register(&status, "appl:HOSTMON,HMN;group:load;attr:load1,D,16;"), 0);
  return status;
}

// A DCH that leaves everything unanswered until it is told to answer.
class Cancellation : public testing::Test {
 protected:
  Cancellation() {
    setenv("ZORA_DCH_TIMEOUT", "600", 1);
    setenv("ZORA_DCH_UDP_SOCKETS_IN_POOL", std::to_string(poolSockets).c_str(), 1);
    DCH_api_init();
    dchAnswers = true;
    EXPECT_EQ(registeredStatus(), 0) << "the pool is there";
    dchAnswers = false;
  }

  // Each time somewhere else: before the call, in it, in its wait.
  void cancelAThousandTimesIn(const std::function<void()>& wait) {
    std::mt19937 random(20261121);
    std::uniform_int_distribution<> microseconds(0, 300);
    const long descriptors = openDescriptors();
    for (int i = 0; i < cancellations; ++i) {
      const Thread thread(wait);
      const auto end =
          std::chrono::steady_clock::now() + std::chrono::microseconds(microseconds(random));
      while (std::chrono::steady_clock::now() < end) sched_yield();
      thread.cancel();
      ASSERT_TRUE(thread.endsCancelled()) << "after " << i << " others";
    }
    EXPECT_EQ(openDescriptors(), descriptors);
    EXPECT_EQ(freePooledSockets(), poolSockets);
    dchAnswers = true;
    EXPECT_EQ(registeredStatus(), 0);
  }

  std::atomic<bool> dchAnswers{false};
  ScriptedDch dch{[this](const std::string&) {
    return dchAnswers ? std::vector{statusAnswer(0)} : std::vector<std::string>{};
  }};
};

TEST_F(Cancellation, OfARequestGivesItsSocketBack) {
  cancelAThousandTimesIn([] {
    ZORA_Long status = 0;
    dp_offline(&status, 815);
  });
}

TEST_F(Cancellation, OfARowGivesItsSocketBack) {
  cancelAThousandTimesIn([] {
    ZORA_Long status = 0;
    ZORA_Long size = 0;
    char* row = nullptr;
    dp_formatData(&status, &row, &size, "load1", "0.25", 4, 'D');
    dp_data(&status, 815, 17, &row);
  });
}

TEST_F(Cancellation, OfAQuestionToTheCatalogueGivesItsSocketBack) {
  cancelAThousandTimesIn([] {
    ZORA_Long length = 0;
    char* text = nullptr;
    dc_getApplications(&length, &text, nullptr, 600);
  });
}

TEST_F(Cancellation, OfAWaitForAnActionsResultGivesItsSocketBack) {
  cancelAThousandTimesIn([] { dc_waitForActionResults(17); });
}

TEST_F(Cancellation, OfAWaitForARowLeavesTheSubscriptionWhole) {
  void* const handle = dc_waitOnDataInitialize("HOSTMON", "load");
  ASSERT_NE(handle, nullptr);
  dch.waitForRequests(2);
  cancelAThousandTimesIn([handle] {
    char row[64];
    dc_waitOnData(handle, row, sizeof row);
  });
  dch.pushTo(1, statusAnswer(0));
  char row[64];
  EXPECT_EQ(dc_waitOnData(handle, row, sizeof row), 0);
  EXPECT_EQ(dc_waitOnDataCancel(handle), 0);
  EXPECT_EQ(dc_waitOnData(handle, row, sizeof row), -1);
  EXPECT_EQ(dc_waitOnDataDestroy(handle), -1);
  void* const other = dc_waitOnDataInitialize("HOSTMON", "load");
  EXPECT_EQ(dc_waitOnDataDestroy(other), 0) << "no lock stayed taken";
}

TEST_F(Cancellation, OfAWaitForStatusLeavesTheSubscriptionWhole) {
  void* const handle = dc_waitForDPStatusInitialize();
  ASSERT_NE(handle, nullptr);
  dch.waitForRequests(2);
  cancelAThousandTimesIn([handle] { dc_waitForDPStatus(handle); });
  dch.pushTo(1, messageOf([](DCH_MessageBuilder& event) {
               event.add(DCH_applName, "HOSTMON")
                   .add(DCH_attrGroup, "load")
                   .add(DCH_sourceName, "host1")
                   .add(DCH_requestType, short{0x1015});
             }));
  EXPECT_STREQ(dc_waitForDPStatus(handle), "HOSTMON,load,host1,4117");
  EXPECT_EQ(dc_waitForDPStatusDestroy(handle), 0);
  EXPECT_EQ(dc_waitForDPStatusDestroy(dc_waitForDPStatusInitialize()), 0) << "no lock stayed taken";
}

TEST_F(Cancellation, OfAWaitForAPooledSocketGivesThePoolsLockBack) {
  std::vector<std::unique_ptr<Thread>> holders;
  for (int i = 0; i < poolSockets; ++i)
    holders.push_back(std::make_unique<Thread>([] { dc_waitForActionResults(17); }));
  dch.waitForRequests(1 + poolSockets);
  {
    const TraceCapture trace("*/ipcSock::allocateIPC=0x10");
    for (int i = 1; i <= 20; ++i) {
      const Thread waiter([] { dc_waitForActionResults(18); });
      ASSERT_TRUE(trace.waitFor("No UDP sockets available yet. Waiting on signal.\n", i));
      waiter.cancel();
      EXPECT_TRUE(waiter.endsCancelled());
    }
  }
  for (const auto& holder : holders) {
    holder->cancel();
    EXPECT_TRUE(holder->endsCancelled());
  }
  EXPECT_EQ(freePooledSockets(), poolSockets);
  dchAnswers = true;
  EXPECT_EQ(registeredStatus(), 0);
}

TEST_F(Cancellation, LeavesNoAnswerForTheNextRequest) {
  const Thread thread([] { dc_waitForActionResults(17); });
  dch.waitForRequests(2);
  thread.cancel();
  EXPECT_TRUE(thread.endsCancelled());
  dch.push(statusAnswer(104));
  dchAnswers = true;
  EXPECT_EQ(registeredStatus(), 0);
}

// A trace line is a cancellation point of the system, and stands where the library holds a lock.
TEST_F(Cancellation, DoesNotHappenAtATraceLine) {
  TRC1_Configure("0xff");
  setenv("ZORA_TRACE_FILE", "/dev/null", 1);
  const Thread thread([] {
    pthread_cancel(pthread_self());
    ASSERT_EQ(ZORA_GetLock(ZORA_GetEnvVarsInitLock(), nullptr), 0);
    ASSERT_EQ(ZORA_ReleaseLock(ZORA_GetEnvVarsInitLock(), nullptr), 0);
    ZORA_Long status = 0;
    dp_offline(&status, 815);
  });
  EXPECT_TRUE(thread.endsCancelled()) << "in the wait";
  EXPECT_EQ(dch.waitForRequests(2).size(), 2U) << "the request went out before";
}

// A thread that handles an exception may be cancelled too.
TEST_F(Cancellation, OfAThreadThatHandlesAnExceptionEndsThatThreadOnly) {
  const Thread thread([] {
    try {
      throw std::runtime_error("the program's own");
    } catch (const std::runtime_error&) {
      ZORA_Long status = 0;
      dp_offline(&status, 815);
    }
  });
  dch.waitForRequests(2);
  thread.cancel();
  EXPECT_TRUE(thread.endsCancelled());
  dchAnswers = true;
  EXPECT_EQ(registeredStatus(), 0);
}

// The process ends with the status that it would have ended with.
TEST(CancellationOfTheEnd, DoesNotKeepAProcessAliveThatCannotGoOn) {
  const ProcessResult child = runInChild(
      [] {
        const Thread thread([] {
          ZORA_Long status = 0;
          dp_offline(&status, 815);
        });
        thread.cancel();
        thread.endsCancelled();
        return 77;
      },
      {{"ZORA_DCH_ADDR", "no such host"}});
  EXPECT_EQ(child.exitStatus, 1);
}

TEST_F(Cancellation, IsNotForAThreadThatDoesNotAllowIt) {
  const Thread thread([] {
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
    ZORA_Long status = -1;
    EXPECT_EQ(dp_offline(&status, 815), 0);
    EXPECT_EQ(status, 0);
  });
  dch.waitForRequests(2);
  thread.cancel();
  dch.push(statusAnswer(0));
  EXPECT_FALSE(thread.endsCancelled());
}

}  // namespace
