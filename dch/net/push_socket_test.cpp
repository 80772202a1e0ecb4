#include "dch/net/push_socket.h"

#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <list>
#include <memory>
#include <system_error>

#include "dch/net/socket_option.h"
#include "dch/testkit/clients.h"
#include "dch/testkit/machine_addresses.h"
#include "suite/zor0.h"
#include "tests/support/wait_until.h"

namespace dch {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using testkit::noServer;
using testkit::UdpClient;

const in_addr anyLoopback{htonl(INADDR_LOOPBACK)};

PeerAddress goneClient() {
  return UdpClient(noServer, testkit::portToLeave()).address();
}

// The system says so a moment after a datagram was sent, or at once.
void collectUntilOneIsGone(PushSocket& socket, std::vector<PeerAddress>* gone) {
  EXPECT_TRUE(waitUntil([&] {
    socket.takeGone(gone);
    return !gone->empty();
  }));
}

std::vector<PeerAddress> goneOf(PushSocket& socket) {
  std::vector<PeerAddress> gone;
  socket.takeGone(&gone);
  return gone;
}

PeerAddress broadcastAddress() {
  sockaddr_in address{};
  address.sin_addr.s_addr = htonl(INADDR_BROADCAST);
  address.sin_port = htons(9);
  return PeerAddress(address);
}

TEST(PushSocketTest, SendsTheMessageAsItIsFromAPortOfItsOwn) {
  PushSocket socket(anyLoopback);
  UdpClient receiver(noServer);
  const std::string message(maxDatagramBytes, 'x');
  EXPECT_TRUE(socket.push(message, receiver.address()));
  EXPECT_EQ(receiver.receive(), message);
  EXPECT_GT(socket.port(), 0);
  EXPECT_THAT(goneOf(socket), IsEmpty());
}

TEST(PushSocketTest, TellsWhoIsGone) {
  PushSocket socket(anyLoopback);
  const PeerAddress missing = goneClient();
  std::vector<PeerAddress> gone;
  EXPECT_TRUE(socket.push("row", missing));
  collectUntilOneIsGone(socket, &gone);
  EXPECT_THAT(gone, ElementsAre(missing));
}

TEST(PushSocketTest, DoesNotLetTheNextReceiverLoseARowBecauseTheLastOneIsGone) {
  PushSocket socket(anyLoopback);
  const PeerAddress missing = goneClient();
  UdpClient receiver(noServer);
  std::vector<PeerAddress> gone;
  socket.push("row", missing);
  EXPECT_TRUE(socket.push("row", receiver.address()));
  EXPECT_EQ(receiver.receive(), "row");
  collectUntilOneIsGone(socket, &gone);
  EXPECT_THAT(gone, ElementsAre(missing));
}

// Whether this process may ask the system for sockets.
bool canLook() {
  PushSocket socket({htonl(INADDR_ANY)});
  socket.look(goneClient());
  return !goneOf(socket).empty();
}

TEST(PushSocketTest, FindsWhoIsGoneWithoutSendingAnything) {
  if (!canLook()) GTEST_SKIP() << "the system may not be asked for sockets here";
  const UdpClient first(noServer), second(noServer);
  const PeerAddress missing = goneClient();
  for (const in_addr_t address : {INADDR_LOOPBACK, INADDR_ANY}) {
    PushSocket socket({htonl(address)});
    for (const PeerAddress& each : {first.address(), missing, second.address()}) socket.look(each);
    EXPECT_THAT(goneOf(socket), ElementsAre(missing));
  }
  EXPECT_EQ(first.receive(0), std::nullopt);
}

// Bound to an address of this machine, and gone unless it is kept.
PeerAddress bindOne(in_addr to, Descriptor* kept = nullptr) {
  Descriptor bound(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr = to;
  address.sin_port =
      kept == nullptr ? htons(static_cast<std::uint16_t>(testkit::portToLeave())) : 0;
  EXPECT_EQ(bind(bound.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  const PeerAddress own(localAddressOf(bound.get()));
  if (kept != nullptr) *kept = std::move(bound);
  return own;
}

TEST(PushSocketTest, FindsWhoIsGoneAtAnyAddressOfTheMachine) {
  if (!canLook()) GTEST_SKIP() << "the system may not be asked for sockets here";
  PushSocket socket({htonl(INADDR_ANY)});
  for (const in_addr address : testkit::machineAddresses()) {
    Descriptor kept;
    const PeerAddress there = bindOne(address, &kept), missing = bindOne(address);
    for (const PeerAddress& each : {there, missing}) socket.look(each);
    EXPECT_THAT(goneOf(socket), ElementsAre(missing)) << missing.text().data();
  }
}

TEST(PushSocketTest, TakesNobodyOfAnotherMachineForGone) {
  PushSocket socket(anyLoopback);
  sockaddr_in address{};
  address.sin_port = htons(9);
  inet_pton(AF_INET, "192.0.2.1", &address.sin_addr);
  socket.look(PeerAddress(address));
  EXPECT_THAT(goneOf(socket), IsEmpty());
}

TEST(PushSocketTest, SendsToManyAndTellsWhoTookNothing) {
  PushSocket socket({htonl(INADDR_ANY)});
  std::list<UdpClient> clients;
  std::vector<PeerAddress> receivers;
  for (int i = 0; i < 100; ++i) {
    receivers.push_back(clients.emplace_back(noServer).address());
    if (i == 30) receivers.push_back(goneClient());
    if (i == 70) receivers.push_back(broadcastAddress());
  }
  bool taken[102] = {};
  socket.pushToAll("row", receivers, taken);
  for (const UdpClient& each : clients) EXPECT_EQ(each.receive(), "row");
  for (std::size_t i = 0; i < receivers.size(); ++i)
    EXPECT_EQ(taken[i], receivers[i] != broadcastAddress()) << i;
  std::vector<PeerAddress> gone;
  collectUntilOneIsGone(socket, &gone);
  EXPECT_THAT(gone, ElementsAre(receivers[31]));
}

PeerAddress addressOf(const PushSocket& socket) {
  sockaddr_in address{};
  address.sin_addr = anyLoopback;
  address.sin_port = htons(socket.port());
  return PeerAddress(address);
}

// What of an answer's length has come, with its sender.
std::vector<std::pair<PeerAddress, std::string>> receivedBy(PushSocket& socket) {
  std::vector<std::pair<PeerAddress, std::string>> all;
  socket.receive([&](const Message& each) {
    EXPECT_TRUE(each.origin.isDatagram());
    all.emplace_back(each.origin.peer, each.bytes);
  });
  return all;
}

const std::string answerOfARow("\0\0\0\x0e\0\x11\0\0\0\x04\0\0\0\0", 14);

TEST(PushSocketTest, ReceivesWhatIsAsLongAsAnAnswerAmongAFloodOfOtherDatagrams) {
  PushSocket socket(anyLoopback);
  const UdpClient client(socket.port()), other(socket.port());
  // Many times what the system keeps.
  for (int i = 0; i < 1'000; ++i) client.send(std::string(8'000, 'x'));
  client.send("");
  client.send(answerOfARow + 'x');
  other.send(answerOfARow);
  EXPECT_THAT(receivedBy(socket), ElementsAre(std::pair(other.address(), answerOfARow)));
  EXPECT_THAT(receivedBy(socket), IsEmpty());
}

TEST(PushSocketTest, ReceivesAFewAtATime) {
  PushSocket socket(anyLoopback);
  const UdpClient client(socket.port());
  constexpr std::size_t sent = 100;
  for (std::size_t i = 0; i < sent; ++i) client.send(answerOfARow);
  std::size_t received = 0;
  for (std::size_t some; (some = receivedBy(socket).size()) > 0; received += some)
    EXPECT_LT(some, sent);
  EXPECT_EQ(received, sent);
}

TEST(PushSocketTest, ReceivesBehindTheErrorOfOneThatIsGone) {
  PushSocket socket(anyLoopback);
  const PeerAddress missing = goneClient();
  socket.push("row", missing);
  PushSocket sender(anyLoopback);
  sender.push(answerOfARow, addressOf(socket));
  EXPECT_TRUE(waitUntil([&] { return !receivedBy(socket).empty(); }));
  std::vector<PeerAddress> gone;
  collectUntilOneIsGone(socket, &gone);
  EXPECT_THAT(gone, ElementsAre(missing));
}

TEST(PushSocketTest, SaysWhenADatagramCannotBeSent) {
  PushSocket socket(anyLoopback);
  EXPECT_FALSE(socket.push("row", broadcastAddress()));
  EXPECT_THAT(goneOf(socket), IsEmpty());
}

TEST(PushSocketTest, RefusesAnAddressThatThisMachineDoesNotHave) {
  in_addr documentation;
  inet_pton(AF_INET, "192.0.2.1", &documentation);
  EXPECT_THROW(PushSocket{documentation}, std::system_error);
}

}  // namespace
}  // namespace dch
