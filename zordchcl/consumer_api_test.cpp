// The consumers' exported functions: their handles, their scope, waits that other threads break.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <thread>
#include <vector>

#include "tests/support/leaks_on_purpose.h"
#include "tests/support/scripted_dch.h"
#include "tests/support/trace_capture.h"
#include "zordchcl/test_client.h"
#include "zordchcl/zordchcl.h"

namespace {

using testing::ElementsAre;
using testing::EndsWith;
using testing::SizeIs;

const std::string start = bytesOf("0011 00000004 00000001");
const std::string stop = bytesOf("0011 00000004 00000000");

class ConsumerApi : public testing::Test {
 protected:
  ConsumerApi() : dch(never()) { DCH_api_init(); }

  // When this returns, the DCH pushes to the new handle.
  void* subscribe() {
    void* const handle = dc_waitOnDataInitialize("HOSTMON", "load");
    EXPECT_NE(handle, nullptr);
    expectOneMoreRequest();
    return handle;
  }

  // Withdraws a subscription that has not failed.
  int withdraw(void* handle) {
    const int result = dc_waitOnDataDestroy(handle);
    expectOneMoreRequest();
    return result;
  }

  int wait(void* handle) {
    buffer.assign(200, '#');
    return dc_waitOnData(handle, buffer.data(), 200);
  }

  static std::string rowNamed(const char* name) {
    return messageOf([&](DCH_MessageBuilder& message) { message.add(DCH_attrName, name); });
  }

  std::string received(std::size_t size) const { return std::string(buffer.data(), size); }

  ScriptedDch dch;
  std::vector<char> buffer;

 private:
  void expectOneMoreRequest() {
    ++_requestsSent;
    EXPECT_THAT(dch.waitForRequests(_requestsSent), SizeIs(_requestsSent));
  }

  std::size_t _requestsSent = 0;
};

TEST_F(ConsumerApi, AHandleLivesFromStartToStop) {
  void* const handle = subscribe();
  for (const char* name : {"one", "two", "three"}) {
    const std::string row = rowNamed(name);
    dch.push(row);
    EXPECT_EQ(wait(handle), 0);
    EXPECT_EQ(received(row.size()), row);
  }
  EXPECT_EQ(withdraw(handle), 0);
  EXPECT_THAT(dch.waitForRequests(2), ElementsAre(EndsWith(start), EndsWith(stop)));
}

TEST_F(ConsumerApi, AWaitLastsUntilARowComes) {
  void* const handle = subscribe();
  int result = 99;
  const TraceCapture trace("*/DCHclient::dc_waitOnData=0x10");
  std::thread waiter([&] { result = wait(handle); });
  EXPECT_TRUE(trace.waitFor("Waiting for dc_waitOnData response message\n"));
  dch.push(rowNamed("late"));
  waiter.join();
  EXPECT_EQ(result, 0);
  EXPECT_EQ(withdraw(handle), 0);
}

TEST_F(ConsumerApi, ACancelFromAnotherThreadBreaksTheWait) {
  void* const handle = subscribe();
  int result = 99;
  const TraceCapture trace("*/DCHclient::dc_waitOnData=0x10");
  std::thread waiter([&] { result = wait(handle); });
  EXPECT_TRUE(trace.waitFor("Waiting for dc_waitOnData response message\n"));
  EXPECT_EQ(dc_waitOnDataCancel(handle), 0);
  waiter.join();
  EXPECT_EQ(result, -1);
  EXPECT_EQ(received(22), bytesOf("00000016 0022 0000000c '-TERMINATE-' 00"));
  EXPECT_EQ(withdraw(handle), -1);
  EXPECT_THAT(dch.waitForRequests(2), ElementsAre(EndsWith(start), EndsWith(stop)));
}

TEST_F(ConsumerApi, ACancelledHandleStillDelivers) {
  void* const handle = subscribe();
  EXPECT_EQ(dc_waitOnDataCancel(handle), 0);
  EXPECT_EQ(wait(handle), -1);
  EXPECT_EQ(dc_waitOnDataCancel(handle), -1);
  const std::string row = rowNamed("late");
  dch.push(row);
  EXPECT_EQ(wait(handle), -1) << "the row is there first";
  EXPECT_EQ(received(row.size()), row);
  EXPECT_EQ(wait(handle), -1) << "then the second cancel";
  EXPECT_EQ(withdraw(handle), -1);
}

TEST_F(ConsumerApi, SeveralHandlesGetTheirOwnRows) {
  void* const first = subscribe();
  dch.push(rowNamed("first"));
  void* const second = subscribe();
  dch.push(rowNamed("second"));
  EXPECT_NE(first, second);
  EXPECT_EQ(wait(second), 0);
  EXPECT_EQ(received(rowNamed("second").size()), rowNamed("second"));
  EXPECT_EQ(withdraw(second), 0);
  EXPECT_EQ(wait(first), 0);
  EXPECT_EQ(received(rowNamed("first").size()), rowNamed("first"));
  EXPECT_EQ(withdraw(first), 0);
}

TEST_F(ConsumerApi, AFailedHandleIsOnlyGoodToBeDestroyed) {
  void* const handle = subscribe();
  EXPECT_EQ(dc_waitOnData(handle, nullptr, 10), 1);
  EXPECT_EQ(wait(handle), 1);
  EXPECT_EQ(dc_waitOnDataCancel(handle), 1);
  EXPECT_EQ(dc_waitOnDataDestroy(handle), 1);
  EXPECT_THAT(dch.requests(), SizeIs(1)) << "no stop is sent";
}

TEST_F(ConsumerApi, ADestroyedHandleTakesItsSocketsWithIt) {
  void* const handle = subscribe();
  EXPECT_EQ(withdraw(handle), 0);
  const TraceCapture trace("0x10");
  void* const again = subscribe();
  EXPECT_EQ(withdraw(again), 0);
  EXPECT_THAT(trace.textsOf("DCHclient::~DCHclient"),
              testing::Contains(testing::StartsWith("Closing socket[")));
}

TEST_F(ConsumerApi, BadNamesGiveNoHandle) {
  const std::string name20(20, 'n');
  const std::string name32(32, 'n');
  {
    const LeaksOnPurpose leaks;
    EXPECT_EQ(dc_waitOnDataInitialize(nullptr, "load"), nullptr);
    EXPECT_EQ(dc_waitOnDataInitialize("HOSTMON", nullptr), nullptr);
    EXPECT_EQ(dc_waitOnDataInitialize((name20 + "n").c_str(), "load"), nullptr);
    EXPECT_EQ(dc_waitOnDataInitialize("HOSTMON", (name32 + "n").c_str()), nullptr);
  }
  EXPECT_THAT(dch.requests(), SizeIs(0));
  void* const handle = dc_waitOnDataInitialize(name20.c_str(), name32.c_str());
  EXPECT_NE(handle, nullptr);
  EXPECT_EQ(dc_waitOnDataDestroy(handle), 0);
}

TEST_F(ConsumerApi, NullHandlesAreFailures) {
  char bytes[8];
  EXPECT_EQ(dc_waitOnData(nullptr, bytes, sizeof bytes), 1);
  EXPECT_EQ(dc_waitOnDataCancel(nullptr), 1);
  EXPECT_EQ(dc_waitOnDataDestroy(nullptr), 1);
  for (const char* function : {"dc_waitOnData", "dc_waitOnDataCancel", "dc_waitOnDataDestroy"}) {
    expectTrace(function, [] {
      dc_waitOnData(nullptr, nullptr, 0);
      dc_waitOnDataCancel(nullptr);
      dc_waitOnDataDestroy(nullptr);
      return Lines{entryLine(), exitLine(1)};
    });
  }
}

TEST_F(ConsumerApi, InitializeTracesItsEntryButNoExit) {
  expectTrace("dc_waitOnDataInitialize", [&] {
    withdraw(subscribe());
    return Lines{entryLine(), storageLine("Allocated client_waitOnData @{address}\n")};
  });
}

TEST_F(ConsumerApi, AFailedInitializeTracesTheSame) {
  const LeaksOnPurpose leaks;
  expectTrace("dc_waitOnDataInitialize", [&] {
    EXPECT_EQ(dc_waitOnDataInitialize(nullptr, "load"), nullptr);
    return Lines{entryLine(), storageLine("Allocated client_waitOnData @{address}\n")};
  });
}

TEST_F(ConsumerApi, AFailedInitializeLeavesItsClientAlive) {
  const TraceCapture trace("0x10");
  EXPECT_EQ(dc_waitOnDataInitialize(nullptr, "load"), nullptr);
  EXPECT_THAT(trace.textsOf("DCHclient::~DCHclient"), testing::IsEmpty());
}

TEST_F(ConsumerApi, TheOtherFunctionsTraceTheirResult) {
  const auto life = [&] {
    void* const handle = subscribe();
    dc_waitOnDataCancel(handle);
    wait(handle);
    withdraw(handle);
  };
  expectTrace("dc_waitOnData", [&] {
    life();
    return Lines{entryLine(), exitLine(-1)};
  });
  expectTrace("dc_waitOnDataCancel", [&] {
    life();
    return Lines{entryLine(), detailLine("clientObject=@{address}\n"), exitLine(0)};
  });
  expectTrace("dc_waitOnDataDestroy", [&] {
    life();
    return Lines{entryLine(), storageLine("Deleting DCHclient object @{address}\n"), exitLine(-1)};
  });
}

TEST_F(ConsumerApi, SubscriptionsOfManyThreadsDoNotMix) {
  std::vector<std::thread> threads;
  std::vector<int> results(4, 99);
  for (std::size_t i = 0; i < results.size(); ++i)
    threads.emplace_back([&results, i] {
      for (int round = 0; round < 20 && results[i] >= 0; ++round) {
        void* const handle = dc_waitOnDataInitialize("HOSTMON", "load");
        std::thread canceller([&] { dc_waitOnDataCancel(handle); });
        char bytes[64];
        const int waited = dc_waitOnData(handle, bytes, sizeof bytes);
        canceller.join();
        results[i] = waited == -1 && dc_waitOnDataDestroy(handle) == -1 ? 0 : -100;
      }
    });
  for (std::thread& thread : threads) thread.join();
  EXPECT_THAT(results, ElementsAre(0, 0, 0, 0));
}

TEST(ConsumerApiOverLpc, WaitAndCancelAreUnfinished) {
  setenv("ZORA_DCH_IPCTYPE", "2", 1);
  DCH_api_init();
  const TraceCapture trace("0x80");
  EXPECT_EQ(dc_waitOnDataInitialize("HOSTMON", "load"), nullptr) << "nothing could be sent";
  EXPECT_THAT(trace.texts(),
              ElementsAre("Error: writing dc_waitOnDataInitialize message to DCHserver\n"));
}

}  // namespace
