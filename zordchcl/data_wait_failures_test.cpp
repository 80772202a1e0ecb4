// A data wait, and its cancelling, when the system's calls and the host's name fail.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <functional>
#include <string>
#include <vector>

#include "suite/descriptor_set.h"
#include "suite/names.h"
#include "tests/support/failing_calls.h"
#include "zordchcl/DCHclient.h"
#include "zordchcl/test_client.h"
#include "zordsock/zordsock.h"

namespace {

// What stands in for a call; while empty, the real call is made.
std::function<const char*()> localHostNameInstead;
std::function<int(const char*, int, sockaddr_in*)> convertNameInstead;

}  // namespace

extern "C" {

const char* __real__Z24ZOR0_LocalHostNameStringv();
const char* __wrap__Z24ZOR0_LocalHostNameStringv() {
  return localHostNameInstead ? localHostNameInstead() : __real__Z24ZOR0_LocalHostNameStringv();
}

int __real__Z22ZOR0_ConvertNameToAddrPKciP11sockaddr_in(const char*, int, sockaddr_in*);
int __wrap__Z22ZOR0_ConvertNameToAddrPKciP11sockaddr_in(const char* name, int port,
                                                        sockaddr_in* address) {
  return (convertNameInstead
              ? convertNameInstead
              : __real__Z22ZOR0_ConvertNameToAddrPKciP11sockaddr_in)(name, port, address);
}

}  // extern "C"

namespace {

// A client that waits, with every replaced call real again when it goes.
class Waiter {
 public:
  ~Waiter() {
    standIns = {};
    localHostNameInstead = nullptr;
    convertNameInstead = nullptr;
  }

  // From now on this "sends" every datagram.
  static void sendBy(const std::function<ssize_t(std::size_t length)>& send) {
    standIns.sendTo = [send](int, const void*, std::size_t length, int, const sockaddr*,
                             socklen_t) { return send(length); };
  }

  ZORA_Long socket() const { return static_cast<ipcSock*>(client._ipcClient)->sockUDP(); }

  // The lines of a wait up to its select.
  Lines waitBegun(const Lines& rest) const {
    auto* const transport = static_cast<ipcSock*>(client._ipcClient);
    Lines lines{
        entryLine(),
        detailLine("Waiting for dc_waitOnData response message\n"),
        detailLine(textOf("Waiting for sockUDP[%d] port[%d] and interruptFD[%d]\n",
                          static_cast<int>(transport->sockUDP()), transport->sockPortUDP(),
                          static_cast<int>(client._interruptFD))),
    };
    lines.insert(lines.end(), rest.begin(), rest.end());
    return lines;
  }

  TraceLine addressLine() const {
    return detailLine(textOf(">> interruptFD=%d, sockAddress <127.0.0.1[%d]>\n",
                             static_cast<int>(client._interruptFD),
                             static_cast<short>(client._interruptPort)));
  }

  DCHclient client{1, 0};
  char buffer[64] = "kept";
};

TEST(FailingWait, ASelectThatFailsIsAFailure) {
  for (const int systemError : {EINTR, EBADF, ENOMEM}) {
    expectTrace("DCHclient::dc_waitOnData", [&] {
      Waiter waiter;
      standIns.select = [&](int, fd_set*, fd_set*, fd_set*, timeval*) {
        errno = systemError;
        return -1;
      };
      EXPECT_EQ(waiter.client.dc_waitOnData(waiter.buffer, sizeof waiter.buffer), 1);
      EXPECT_STREQ(waiter.buffer, "kept");
      EXPECT_EQ(waiter.client._clientError, 1);
      return waiter.waitBegun({errorLine("Error: select (indefinitely) failed.\n"), exitLine(1)});
    });
  }
}

TEST(FailingWait, ASelectThatNamesNoDescriptorIsAFailure) {
  for (const int count : {0, 1}) {
    expectTrace("DCHclient::dc_waitOnData", [&] {
      Waiter waiter;
      standIns.select = [&](int, fd_set* readSet, fd_set*, fd_set*, timeval*) {
        ZOR0_ClearDescriptors(readSet, 0);
        return count;
      };
      EXPECT_EQ(waiter.client.dc_waitOnData(waiter.buffer, sizeof waiter.buffer), 1);
      EXPECT_STREQ(waiter.buffer, "kept");
      return waiter.waitBegun({errorLine("Error: unrecognize FD from select\n"), exitLine(1)});
    });
  }
}

TEST(FailingWait, WaitsForBothSocketsToBecomeReadableWithoutLimit) {
  Waiter waiter;
  int asked = 0;
  standIns.select = [&](int count, fd_set* readSet, fd_set* writeSet, fd_set* otherSet,
                        timeval* limit) {
    asked += 1;
    EXPECT_EQ(count, std::max(waiter.socket(), waiter.client._interruptFD) + 1);
    for (int descriptor = 0; descriptor < count; ++descriptor)
      EXPECT_EQ(ZOR0_HasDescriptor(readSet, descriptor),
                descriptor == waiter.socket() || descriptor == waiter.client._interruptFD);
    EXPECT_EQ(writeSet, nullptr);
    EXPECT_EQ(otherSet, nullptr);
    EXPECT_EQ(limit, nullptr);
    return -1;
  };
  waiter.client.dc_waitOnData(waiter.buffer, sizeof waiter.buffer);
  EXPECT_EQ(asked, 1);
}

TEST(FailingCancel, ADatagramThatIsNotSentWholeIsAFailure) {
  for (const int sent : {-1, 0, 5, 21}) {
    expectTrace("DCHclient::dc_waitOnDataCancel", [&] {
      Waiter waiter;
      Waiter::sendBy([&](std::size_t length) {
        EXPECT_EQ(length, 22u);
        return ssize_t{sent};
      });
      EXPECT_EQ(waiter.client.dc_waitOnDataCancel(), 1);
      return Lines{entryLine(), waiter.addressLine(),
                   errorLine(textOf("Error: SENDTO - Sent %d bytes out of 22\n", sent)),
                   exitLine(1)};
    });
  }
}

TEST(FirstCancel, AnswersZeroEvenWhenTheWaitEndsBeforeItReturns) {
  expectTrace("DCHclient::dc_waitOnDataCancel", [] {
    Waiter waiter;
    Waiter::sendBy([&](std::size_t length) {
      waiter.client._clientError = -1;  // as the waiting thread does
      return static_cast<ssize_t>(length);
    });
    EXPECT_EQ(waiter.client.dc_waitOnDataCancel(), 0);
    EXPECT_EQ(waiter.client._clientError, -1);
    return Lines{entryLine(), waiter.addressLine(),
                 dumpLine("DUMP[22] of dc_waitOnDataCancel request.\n"), exitLine(0)};
  });
}

TEST(FailingCancel, AfterACancelledWaitIsAFailureToo) {
  Waiter waiter;
  waiter.client._clientError = -1;
  Waiter::sendBy([](std::size_t) { return ssize_t{-1}; });
  EXPECT_EQ(waiter.client.dc_waitOnDataCancel(), 1);
}

TEST(FailingCancel, WithoutAHostNameReportsBothSteps) {
  expectTrace("DCHclient::dc_waitOnDataCancel", [] {
    Waiter waiter;
    localHostNameInstead = [] { return nullptr; };
    Waiter::sendBy([](std::size_t) {
      ADD_FAILURE() << "nothing is to be sent";
      return ssize_t{-1};
    });
    EXPECT_EQ(waiter.client.dc_waitOnDataCancel(), 1);
    return Lines{entryLine(), errorLine("Error: ZOR0_LocalHostNameString failed.\n"),
                 errorLine("Error: ZOR0_ConvertNameToAddr failed for[]\n"), exitLine(1)};
  });
}

TEST(FailingCancel, WithoutAHostNameSendsNothingEvenToAnAddress) {
  expectTrace("DCHclient::dc_waitOnDataCancel", [] {
    Waiter waiter;
    localHostNameInstead = [] { return nullptr; };
    convertNameInstead = [](const char*, int port, sockaddr_in* address) {
      return __real__Z22ZOR0_ConvertNameToAddrPKciP11sockaddr_in("127.0.0.1", port, address);
    };
    Waiter::sendBy([](std::size_t) {
      ADD_FAILURE() << "nothing is to be sent";
      return ssize_t{-1};
    });
    EXPECT_EQ(waiter.client.dc_waitOnDataCancel(), 1);
    return Lines{entryLine(), errorLine("Error: ZOR0_LocalHostNameString failed.\n"),
                 waiter.addressLine(), exitLine(1)};
  });
}

TEST(FailingCancel, AHostNameWithoutAnAddressIsAFailure) {
  expectTrace("DCHclient::dc_waitOnDataCancel", [] {
    Waiter waiter;
    convertNameInstead = [&](const char*, int port, sockaddr_in*) {
      EXPECT_EQ(port, static_cast<short>(waiter.client._interruptPort));
      return 0;
    };
    EXPECT_EQ(waiter.client.dc_waitOnDataCancel(), 1);
    return Lines{entryLine(), errorLine("Error: ZOR0_ConvertNameToAddr failed for[localhost]\n"),
                 exitLine(1)};
  });
}

}  // namespace
