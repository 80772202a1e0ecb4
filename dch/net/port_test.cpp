#include "dch/net/port.h"

#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <stdexcept>

#include "dch/net/port_sockets.h"
#include "tests/support/sockets.h"
#include "tests/support/wait_until.h"

namespace dch {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;

constexpr in_addr thisMachine{0x0100007f};

int portOf(const ServedPort& served) {
  return ntohs(served.address.port);
}

std::string refusalOf(in_addr address, std::optional<int> port) {
  try {
    openPort(address, port);
    return "none";
  } catch (const std::runtime_error& error) {
    return error.what();
  }
}

TEST(OpenPortTest, ServesAnyFreePort) {
  const ServedPort first = openPort(thisMachine, 0), second = openPort(thisMachine, 0);
  EXPECT_NE(portOf(first), portOf(second));
  for (const Descriptor& socket : first.datagramSockets) EXPECT_TRUE(socket.isOpen());
  EXPECT_GT(first.datagramSockets.size(), 1u);
  const StreamSocket client(portOf(first));
}

TEST(OpenPortTest, RefusesAPortThatAnotherServerHas) {
  const ServedPort served = openPort(thisMachine, 0);
  EXPECT_THAT(refusalOf(thisMachine, portOf(served)),
              AllOf(HasSubstr("DCH port " + std::to_string(portOf(served)) + " of 127.0.0.1"),
                    HasSubstr("already active")));
}

// Why a port is refused that is taken for one kind of socket; another test may have it for the
// other kind, so there are some attempts.
template <class TakenSocket>
bool isRefusedBecause(const std::string& reason) {
  for (int attempt = 0; attempt < 10; ++attempt) {
    const TakenSocket taken;
    if (refusalOf(thisMachine, taken.port()).ends_with(reason)) return true;
  }
  return false;
}

TEST(OpenPortTest, SaysForWhichOfTheTwoAPortIsInUse) {
  EXPECT_TRUE(isRefusedBecause<DatagramSocket>(" for datagrams: Address already in use"));
  EXPECT_TRUE(isRefusedBecause<StreamListener>(" for streams: Address already in use"));
}

TEST(OpenPortTest, RefusesAnAddressThatTheMachineDoesNotHave) {
  in_addr elsewhere;
  inet_pton(AF_INET, "192.0.2.1", &elsewhere);
  for (const int port : {0, 1919})
    EXPECT_THAT(refusalOf(elsewhere, port),
                AllOf(HasSubstr("192.0.2.1"), HasSubstr("Cannot assign requested address")));
}

// Whether a port can be served again at once after a server that ended its connections itself.
bool canServeAgain() {
  ServedPort served = openPort(thisMachine, 0);
  const int port = portOf(served);
  const StreamSocket client(port);
  // The end that is closed first stays with the system for a while.
  EXPECT_TRUE(waitUntil(
      [&] { return Descriptor(accept(served.listener.get(), nullptr, nullptr)).isOpen(); }));
  served = ServedPort();
  return refusalOf(thisMachine, port) == "none";
}

TEST(OpenPortTest, TakesAPortThatConnectionsOfAnEarlierServerHold) {
  // Another test may take the port in between.
  bool canServe = false;
  for (int attempt = 0; attempt < 10 && !canServe; ++attempt) canServe = canServeAgain();
  EXPECT_TRUE(canServe);
}

}  // namespace
}  // namespace dch
