#include <gmock/gmock.h>

#include <atomic>
#include <memory>
#include <thread>

#include "suite/sockets.h"
#include "tests/support/trace_capture.h"
#include "zordsock/test_pool.h"
#include "zordsock/test_read.h"

using namespace zordsock;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

// ---- Building ----------------------------------------------------------------------------------

TEST(Pool, IsBuiltOfAsManySocketsAsAreAskedFor) {
  const DchSocket dch;
  setPoolSize(3);
  const Borrower borrower;
  for (int i = 0; i < 3; ++i) EXPECT_NE(ZOR0_RetrieveSockPort(_UDPSockList[i].sockUDP), 0);
  EXPECT_THAT(inUse(), ElementsAre(1, 0, 0));
}

TEST(Pool, BuildingIsTraced) {
  const DchSocket dch;
  const ipcSock readsEnvironment(SERVICE_UDP_CLIENT, 0, 0);
  expectTrace("ipcSock::ipcSock", [] {
    forgetPool(2);
    const ipcSock endpoint(SERVICE_UDP_CLIENT, 0, 1);
    const void* const lock = ZORA_GetEnvVarsInitLock();
    return std::vector<TraceLine>{
        entryLine(),
        flowLine("service=3 connectTo=0 _useFromSockPool=1 _envVarsInit=1 _envDCHUDPInit=0\n"),
        flowLine(textOf("Acquiring EnvVars Init Lock. [@%p]\n", lock)),
        storageLine(textOf("Initializing mutex[@%p] and Cond[@%p] for ipcSock object @%p\n",
                           poolLock(), TRC1_Pointer(&_UDPSockCond), TRC1_Pointer(&endpoint))),
        detailLine("Initializing 2 UDP sockets.\n"),
        storageLine(textOf("Allocated _UDPSockList @%p\n", TRC1_Pointer(_UDPSockList))),
        detailLine(textOf("[0] UDP Socket %d allocated.\n", _UDPSockList[0].sockUDP)),
        detailLine(textOf("[1] UDP Socket %d allocated.\n", _UDPSockList[1].sockUDP)),
        flowLine(textOf("Releasing EnvVars Init Lock. [@%p]\n", lock)),
        exitLine()};
  });
}

TEST(Pool, IsBuiltOnceAndKept) {
  const DchSocket dch;
  setPoolSize(2);
  { const Borrower first; }
  const UDPSockElement* const list = _UDPSockList;
  setPoolSize(5);
  const Borrower second;
  EXPECT_EQ(_UDPSockList, list);
  EXPECT_EQ(_envDCHUDPSocks, 2);
}

TEST(Pool, ThatCannotBeAllocatedServesNobody) {
  const DchSocket dch;
  setPoolSize(-1);
  const TraceCapture trace("0x80");
  errno = 0;
  ipcSock first(SERVICE_UDP_CLIENT, 0, 1);
  EXPECT_THAT(trace.texts(),
              ElementsAre("Error: allocation of -1 UDPSockElement failed\n",
                          "Error: _sockUDP[-999]  errno=0\n", "Error: IPCClient failed.\n",
                          "Error: startup failed. _sockError=1\n", "Error: _sockError=1\n"));
  ipcSock second(SERVICE_UDP_CLIENT, 0, 1);
  EXPECT_EQ(trace.count("Error: allocation of -1 UDPSockElement failed\n"), 1);
  for (ipcSock* endpoint : {&first, &second}) {
    EXPECT_EQ(endpoint->ipcGetError(), 1);
    EXPECT_EQ(endpoint->allocateIPC(), -999);
    EXPECT_EQ(endpoint->releaseIPC(), 1);
  }
}

TEST(Pool, ThatCannotBeAllocatedShowsNoFurtherLines) {
  const DchSocket dch;
  setPoolSize(-1);
  ipcSock endpoint(SERVICE_UDP_CLIENT, 0, 1);
  expectTrace("ipcSock::allocateIPC", [&] {
    EXPECT_EQ(endpoint.allocateIPC(), -999);
    return with(poolLines(), {exitLine(-999)});
  });
  expectTrace("ipcSock::releaseIPC", [&] {
    EXPECT_EQ(endpoint.releaseIPC(), 1);
    return with(poolLines(), {exitLine(1)});
  });
}

// ---- Borrowing ---------------------------------------------------------------------------------

TEST(Pool, GivesTheFreeSocketOfTheLowestIndex) {
  const DchSocket dch;
  setPoolSize(3);
  auto first = std::make_unique<Borrower>();
  const Borrower second;
  EXPECT_EQ(first->endpoint.sockUDP(), _UDPSockList[0].sockUDP);
  EXPECT_EQ(second.endpoint.sockUDP(), _UDPSockList[1].sockUDP);
  first.reset();
  EXPECT_THAT(inUse(), ElementsAre(0, 1, 0));
  const Borrower third;
  EXPECT_EQ(third.endpoint.sockUDP(), _UDPSockList[0].sockUDP);
}

TEST(Pool, BorrowingIsTraced) {
  const DchSocket dch;
  setPoolSize(2);
  const Borrower borrower;
  expectTrace("ipcSock::allocateIPC", [] {
    const Borrower second;
    return with(allocationLines(),
                {availableLine(1, _UDPSockList[1].sockUDP), exitLine(_UDPSockList[1].sockUDP)});
  });
}

TEST(Pool, GivingBackIsTraced) {
  const DchSocket dch;
  setPoolSize(2);
  const Borrower borrower;
  expectTrace("ipcSock::releaseIPC", [] {
    ipcSock endpoint(SERVICE_UDP_CLIENT, 0, 1);
    EXPECT_EQ(endpoint.releaseIPC(), 0);
    return with(poolLines(), {freedLine(1, endpoint.sockUDP()), signallingLine(), exitLine(0)});
  });
}

TEST(Pool, IsNotUsedWithoutTheSwitch) {
  const DchSocket dch;
  setPoolSize(1);
  const Borrower borrower;
  expectTrace("ipcSock::allocateIPC", [] {
    const ipcSock endpoint(SERVICE_UDP_CLIENT, 0, 0);
    EXPECT_NE(endpoint.sockUDP(), _UDPSockList[0].sockUDP);
    return std::vector<TraceLine>{
        entryLine(), flowLine(textOf("_useFromSockPool[0] _UDPSockLock[@%p]\n", poolLock())),
        detailLine("Creating UDP socket from outside of pool.\n"),
        storageLine(
            textOf("Allocated UDP socket %d from outside socket pool\n", endpoint.sockUDP())),
        exitLine(endpoint.sockUDP())};
  });
}

TEST(Pool, IsLeftAloneByAnEndpointWithoutTheSwitch) {
  const DchSocket dch;
  setPoolSize(1);
  const Borrower borrower;
  ipcSock endpoint(SERVICE_UDP_CLIENT, 0, 0);
  const int own = endpoint._sockUDP;
  expectTrace("ipcSock::releaseIPC", [&] {
    endpoint._sockUDP = borrower.endpoint.sockUDP();
    EXPECT_EQ(endpoint.releaseIPC(), 0);
    endpoint._sockUDP = own;
    EXPECT_THAT(inUse(), ElementsAre(1));
    return std::vector<TraceLine>{
        entryLine(), flowLine(textOf("_useFromSockPool[0] _UDPSockLock[@%p]\n", poolLock())),
        exitLine(0)};
  });
}

TEST(Pool, RefusesADescriptorThatIsNotItsOwn) {
  const DchSocket dch;
  setPoolSize(1);
  const Borrower borrower;
  ipcSock foreign(SERVICE_UDP_CLIENT, 1, 1);
  expectTrace("ipcSock::releaseIPC", [&] {
    EXPECT_EQ(foreign.releaseIPC(), 1);
    EXPECT_THAT(inUse(), ElementsAre(1));
    return with(
        poolLines(),
        {errorLine(textOf("Error: UDP socket %d not found.\n", foreign.sockUDP())), exitLine(1)});
  });
}

TEST(Pool, DoesNotDrainASocketBetweenItsOwners) {
  const DchSocket dch;
  setPoolSize(1);
  {
    const Borrower earlier;
    dch.sendTo(ZOR0_RetrieveSockPort(earlier.endpoint.sockUDP()), messageBytes(12, 12));
  }
  Borrower later;
  EXPECT_EQ(readFrom(later.endpoint, 5).result, 12);
}

// ---- Waiting -----------------------------------------------------------------------------------

TEST(Pool, ASecondEndpointWaitsForTheOnlySocket) {
  const DchSocket dch;
  setPoolSize(1);
  auto first = std::make_unique<Borrower>();
  const int descriptor = first->endpoint.sockUDP();
  const TraceCapture trace("*/ipcSock::allocateIPC=0x10");
  std::atomic<int> taken{-1};
  std::thread waiter([&] { taken = Borrower().endpoint.sockUDP(); });
  EXPECT_TRUE(trace.waitFor(waitingLine().text));
  EXPECT_EQ(taken, -1);
  first.reset();
  waiter.join();
  EXPECT_EQ(taken, descriptor);
  EXPECT_THAT(trace.texts(), ElementsAre(waitingLine().text, signalledLine().text,
                                         availableLine(0, descriptor).text));
}

TEST(Pool, AReleaseServesOneWaiter) {
  const DchSocket dch;
  setPoolSize(1);
  auto first = std::make_unique<Borrower>();
  const TraceCapture trace("*/ipcSock::allocateIPC=0x10");
  std::atomic<int> served{0};
  std::atomic<bool> mayGiveBack{false};
  const auto borrow = [&] {
    const Borrower borrower;
    served += 1;
    while (!mayGiveBack) std::this_thread::yield();
  };
  std::thread one(borrow);
  std::thread other(borrow);
  EXPECT_TRUE(trace.waitFor(waitingLine().text, 2));
  const std::string available = availableLine(0, first->endpoint.sockUDP()).text;
  first.reset();
  EXPECT_TRUE(trace.waitFor(available, 1));
  EXPECT_LE(served, 1);
  mayGiveBack = true;
  one.join();
  other.join();
  EXPECT_EQ(served, 2);
  EXPECT_EQ(trace.count(available), 2);
  EXPECT_THAT(inUse(), ElementsAre(0));
}

TEST(Pool, NeverLendsASocketToTwo) {
  const DchSocket dch;
  setPoolSize(2);
  { const Borrower buildsPool; }
  std::atomic<int> holders[2] = {};
  const auto borrowOften = [&] {
    for (int i = 0; i < 200; ++i) {
      const Borrower borrower;
      const int index = borrower.endpoint.sockUDP() == _UDPSockList[0].sockUDP ? 0 : 1;
      EXPECT_EQ(holders[index].fetch_add(1), 0);
      holders[index].fetch_sub(1);
    }
  };
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) threads.emplace_back(borrowOften);
  for (std::thread& thread : threads) thread.join();
  EXPECT_THAT(inUse(), ElementsAre(0, 0));
}

TEST(Pool, IsBuiltOnceByManyThreads) {
  const DchSocket dch;
  setPoolSize(4);
  const TraceCapture trace("0x10");
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) threads.emplace_back([] { const Borrower borrower; });
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(trace.count("Initializing 4 UDP sockets.\n"), 1);
  EXPECT_EQ(trace.count(textOf("Assigned DCH port number to %d\n", dch.port())), 1);
}

}  // namespace
