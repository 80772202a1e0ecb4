// Which port the server takes, on ports found free. What needs the default candidates is in
// port_candidates_test.cpp.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <deque>

#include "zordsock/test_port.h"

namespace {

using testing::ElementsAre;

// ---- The configured port, and no other ---------------------------------------------------------

TEST(FixedPort, IsOpenedForBothKinds) {
  expectTrace(allocationName, [] {
    const ProductSettings settings("3=MONITOR\n23=7\n");
    const int port = findFreePort();
    PortlessServer server(port);
    EXPECT_EQ(server.allocateDCHport(), 1);
    EXPECT_TRUE(server.serves(port));
    EXPECT_THAT(recordedSleeps(), ElementsAre(2));
    return AllocationTrace(port)
        .addBound(port)
        .add({detailLine(textOf("Opened DCH port %d _sockUDP[%d] _sockTCP[%d] for MONITOR\n", port,
                                server._sockUDP, server._sockTCP))})
        .success("MONITOR", port);
  });
}

TEST(FixedPort, IsNotPublished) {
  const ProductSettings settings("23=7\n");
  const int port = findFreePort();
  PortlessServer server(port);
  server.allocateDCHport();
  EXPECT_EQ(publishedPort(), "none");
  EXPECT_EQ(settings.get(22), "none");
  EXPECT_EQ(settings.get(23), "7");
}

TEST(FixedPort, IsThatOfAnInstanceWithAPortOfItsOwn) {
  ZORA_SetInstanceName("inst1");
  expectTrace(allocationName, [] {
    const ProductSettings settings("");
    const int port = findFreePort();
    PortlessServer server(port);
    EXPECT_EQ(server.allocateDCHport(), 1);
    EXPECT_TRUE(server.serves(port));
    return AllocationTrace(port)
        .addInstance("inst1", "ZORA")
        .addBound(port)
        .add({detailLine(textOf("Opened DCH port %d _sockUDP[%d] _sockTCP[%d] for ZORA\n", port,
                                server._sockUDP, server._sockTCP))})
        .success("ZORA", port);
  });
}

void allocateFor(int port) {
  PortlessServer(port).allocateDCHport();
}

TEST(FixedPort, InUseForBothKindsEndsTheProcessAfterOneAttempt) {
  const ProductSettings settings("3=MONITOR\n");
  const int port = findFreePort();
  const TakenPort taken(port);
  expectTraceAndExit(
      allocationName, [&] { allocateFor(port); },
      AllocationTrace(port)
          .addFailed()
          .add({errorLine(textOf(
                    "Error: Could not open TCP/UDP sockets bound to MONITOR DCH port %d\n", port)),
                errorLine("Determine if another copy of MONITOR is already active on this system.  "
                          "Exiting...\n\n")})
          .lines());
}

TraceLine fixedFailureLine(int port, int udpError, int tcpError) {
  return errorLine(
      textOf("Error: Could not open TCP/UDP sockets bound to MONITOR DCH port %d, UDP Errno: %d, "
             "TCP Errno: %d.  Exiting...\n\n",
             port, udpError, tcpError));
}

TEST(FixedPort, InUseForDatagramsEndsTheProcess) {
  const ProductSettings settings("3=MONITOR\n");
  const int port = findFreePort();
  const TakenPort taken(port, {SOCK_DGRAM});
  expectTraceAndExit(
      allocationName, [&] { allocateFor(port); },
      AllocationTrace(port)
          .addAttempt("-1", {}, "{number}", loopbackAddress(port))
          .add({fixedFailureLine(port, EADDRINUSE, 0)})
          .lines());
}

// The address of the first socket is cleared before the second is opened.
TEST(FixedPort, InUseForStreamsEndsTheProcess) {
  const ProductSettings settings("3=MONITOR\n");
  const int port = findFreePort();
  const TakenPort taken(port, {SOCK_STREAM});
  expectTraceAndExit(
      allocationName, [&] { allocateFor(port); },
      AllocationTrace(port)
          .addAttempt("{number}", loopbackAddress(port), "-1", {})
          .add({fixedFailureLine(port, 0, EADDRINUSE)})
          .lines());
}

TEST(FixedPort, OnAnAddressThatIsNotOursEndsTheProcess) {
  setenv("ZOR0_BIND_ADDR", "192.0.2.1", 1);
  const ProductSettings settings("3=MONITOR\n");
  const int port = findFreePort();
  expectTraceAndExit(
      allocationName, [&] { allocateFor(port); },
      AllocationTrace(port)
          .addFailed()
          .add({fixedFailureLine(port, EADDRNOTAVAIL, EADDRNOTAVAIL)})
          .lines());
}

// ---- Candidates from the configured port on, with setting 0 -------------------------------------

TEST(CandidatePort, WithSettingZeroIsFirstTheConfiguredOne) {
  expectTrace(allocationName, [] {
    const ProductSettings settings("0=\n3=MONITOR\n");
    const int port = findFreePort();
    PortlessServer server(port);
    EXPECT_EQ(server.allocateDCHport(), 1);
    EXPECT_TRUE(server.serves(port));
    EXPECT_EQ(zordsock::_envPortNo, port);
    EXPECT_EQ(publishedPort(), std::to_string(port));
    EXPECT_EQ(settings.get(22), std::to_string(port));
    EXPECT_EQ(settings.get(23), "none");
    EXPECT_THAT(recordedSleeps(), ElementsAre(1));
    return AllocationTrace(port).addOffset(0).addBound(port).addPublished(port).success("MONITOR",
                                                                                        port);
  });
}

TEST(CandidatePort, IsTheNextWhenTheFirstIsInUse) {
  expectTrace(allocationName, [] {
    const ProductSettings settings("0=yes\n23=17\n");
    const int port = findPort(20000, 31000, [](int first) { return isFree(first + 17); });
    const TakenPort taken(port);
    PortlessServer server(port);
    EXPECT_EQ(server.allocateDCHport(), 1);
    EXPECT_TRUE(server.serves(port + 17));
    EXPECT_EQ(publishedPort(), std::to_string(port + 17));
    EXPECT_EQ(settings.get(22), std::to_string(port + 17));
    EXPECT_EQ(settings.get(23), "17");
    return AllocationTrace(port)
        .addOffset(17)
        .addFailed()
        .addRetry(port)
        .addBound(port + 17)
        .addPublished(port + 17)
        .success("ZORA", port + 17);
  });
}

TEST(CandidatePort, IsAThousandFurtherWithoutAnOffset) {
  for (const char* offset : {"0", "none", ""}) {
    const ProductSettings settings(std::string("0=yes\n23=") + offset + '\n');
    const int port = findPort(20000, 30999, [](int first) { return isFree(first + 1000); });
    const TakenPort taken(port);
    PortlessServer server(port);
    server.allocateDCHport();
    EXPECT_TRUE(server.serves(port + 1000));
  }
}

// Here the address is not cleared: that of the last socket bound stays.
TEST(CandidatePort, FreeForOneKindIsLeftOpenAndTheNextIsTried) {
  expectTrace(allocationName, [] {
    const ProductSettings settings("0=yes\n23=1\n");
    const int port = findPort(20000, 31000, [](int first) {
      return isFree(first) && isFree(first + 1) && isFree(first + 2);
    });
    const TakenPort datagrams(port, {SOCK_DGRAM});
    const TakenPort streams(port + 1, {SOCK_STREAM});
    PortlessServer server(port);
    const long before = openDescriptors();
    EXPECT_EQ(server.allocateDCHport(), 1);
    EXPECT_TRUE(server.serves(port + 2));
    EXPECT_EQ(openDescriptors(), before + 4);
    const auto failureLine = [](int candidate, int udpError, int tcpError) {
      return errorLine(
          textOf("Error: Could not open TCP/UDP sockets bound to ZORA DCH port %d, UDP Errno: %d, "
                 "TCP Errno: %d\n",
                 candidate, udpError, tcpError));
    };
    return AllocationTrace(port)
        .addOffset(1)
        .addAttempt("-1", {}, "{number}", loopbackAddress(port))
        .add({failureLine(port, EADDRINUSE, 0)})
        .addAttempt("{number}", loopbackAddress(port + 1), "-1", loopbackAddress(port + 1))
        .add({failureLine(port + 1, 0, EADDRINUSE)})
        .addBound(port + 2)
        .addPublished(port + 2)
        .success("ZORA", port + 2);
  });
}

TEST(CandidatePort, AboveTheHighestPortEndsTheProcess) {
  const ProductSettings settings("0=yes\n3=MONITOR\n23=60000\n");
  const int port = findFreePort();
  const TakenPort taken(port);
  expectTraceAndExit(
      allocationName, [&] { allocateFor(port); },
      AllocationTrace(port).addOffset(60000).addFailed().addRetry(port).allUnavailable("MONITOR"));
}

TEST(CandidatePort, IsTheHighestPortAtMost) {
  const ProductSettings settings("0=yes\n");
  if (!isFree(65535)) GTEST_SKIP() << "port 65535 is in use on this machine";
  PortlessServer server(65535);
  server.allocateDCHport();
  EXPECT_TRUE(server.serves(65535));
}

// The last attempt says nothing of another.
TEST(CandidatePort, AfterTheTenthMultipleEndsTheProcess) {
  const ProductSettings settings("0=yes\n3=MONITOR\n23=1\n");
  const int port = findFreePort();
  std::deque<TakenPort> taken;
  AllocationTrace trace(port);
  trace.addOffset(1);
  for (int i = 0; i <= 10; ++i) {
    taken.emplace_back(port + i);
    trace.addFailed();
    if (i < 10) trace.addRetry(port + i);
  }
  expectTraceAndExit(
      allocationName, [&] { allocateFor(port); }, trace.allUnavailable("MONITOR"));
}

TEST(CandidatePort, IsKeptWhenTheSettingsCannotBeWritten) {
  expectTrace(allocationName, [] {
    const ProductSettings settings("0=yes\n");
    settings.refuseUpdates();
    const int port = findFreePort();
    PortlessServer server(port);
    EXPECT_EQ(server.allocateDCHport(), 1);
    EXPECT_TRUE(server.serves(port));
    EXPECT_EQ(settings.get(22), "none");
    return AllocationTrace(port)
        .addOffset(0)
        .addBound(port)
        .addPublished(port)
        .add({errorLine(textOf("Error: Unable to reset port value to <%d>\n", port))})
        .success("ZORA", port);
  });
}

// ---- Candidates of an instance ------------------------------------------------------------------

constexpr int candidateBase = 46300 + defaultPort;

// The offset whose second candidate is free and outside the range that the system gives from. Its
// first lies inside, which does not matter as it is to be in use.
int findOffset() {
  const int second = findPort(61001, 65535, [](int port) { return port % 2 == 1 && isFree(port); });
  return (second - candidateBase) / 2;
}

std::string offsetSetting(int offset) {
  return "23=" + std::to_string(offset) + '\n';
}

TEST(InstancePort, IsTheSecondCandidateWhenTheFirstIsInUse) {
  ZORA_SetInstanceName("inst1");
  expectTrace(allocationName, [] {
    const int offset = findOffset();
    const int first = candidateBase + offset;
    const int second = first + offset;
    const ProductSettings settings("3=MONITOR\n" + offsetSetting(offset));
    const TakenPort taken(first);
    PortlessServer server(defaultPort);
    EXPECT_EQ(server.allocateDCHport(), 1);
    EXPECT_TRUE(server.serves(second));
    EXPECT_EQ(zordsock::_envPortNo, second);
    EXPECT_EQ(publishedPort(), std::to_string(second));
    EXPECT_EQ(settings.get(22), std::to_string(second));
    EXPECT_EQ(settings.get(23), std::to_string(2 * offset));
    EXPECT_THAT(recordedSleeps(), ElementsAre(1));
    return AllocationTrace(defaultPort)
        .addInstance("inst1", "MONITOR")
        .addOffset(offset)
        .addFailed()
        .addRetry(first)
        .addBound(second)
        .addPublished(second)
        .addPublishedOffset(2 * offset)
        .success("MONITOR", second);
  });
}

TEST(InstancePort, IsKeptWhenTheSettingsCannotBeWritten) {
  ZORA_SetInstanceName("inst1");
  expectTrace(allocationName, [] {
    const int port = findPort(61001, 65535);
    const int offset = port - candidateBase;
    const ProductSettings settings(offsetSetting(offset));
    settings.refuseUpdates();
    PortlessServer server(defaultPort);
    EXPECT_EQ(server.allocateDCHport(), 1);
    EXPECT_TRUE(server.serves(port));
    EXPECT_EQ(settings.get(23), std::to_string(offset));
    return AllocationTrace(defaultPort)
        .addInstance("inst1", "ZORA")
        .addOffset(offset)
        .addBound(port)
        .addPublished(port)
        .add({errorLine(textOf("Error: Unable to reset port value to <%d>\n", port))})
        .addPublishedOffset(offset)
        .add({errorLine(textOf("Error: Unable to reset port offset value to <%d>\n", offset))})
        .success("ZORA", port);
  });
}

TEST(InstancePort, WithSettingZeroIsFirstTheConfiguredOne) {
  ZORA_SetInstanceName("inst1");
  expectTrace(allocationName, [] {
    const ProductSettings settings("0=yes\n23=9\n");
    const int port = findFreePort();
    PortlessServer server(port);
    EXPECT_EQ(server.allocateDCHport(), 1);
    EXPECT_TRUE(server.serves(port));
    EXPECT_EQ(settings.get(22), std::to_string(port));
    EXPECT_EQ(settings.get(23), "9");
    return AllocationTrace(port)
        .addInstance("inst1", "ZORA")
        .addOffset(9)
        .addBound(port)
        .addPublished(port)
        .success("ZORA", port);
  });
}

}  // namespace
