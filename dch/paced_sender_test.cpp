#include "dch/paced_sender.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <list>

#include "dch/event_log.h"
#include "dch/push_socket.h"
#include "dch/testkit/clients.h"

namespace dch {
namespace {

using testkit::noServer;
using testkit::UdpClient;

constexpr std::size_t datagramBytes = maxDatagramBytes;
constexpr std::chrono::milliseconds shortPause{1};
// As good as no end: what waits for it is never sent.
constexpr std::chrono::hours longPause{1};

// A message of `datagrams` datagrams, the last one short.
std::string longMessage(std::size_t datagrams, char byte) {
  return std::string((datagrams - 1) * datagramBytes + 100, byte);
}

class PacedSenderTest : public ::testing::Test {
 protected:
  static std::string receiveAll(UdpClient* client, std::size_t datagrams) {
    std::string all;
    for (std::size_t i = 0; i < datagrams; ++i) all += client->receive().value_or("");
    return all;
  }

  const EventLog _log{false};
  PushSocket _socket{in_addr{htonl(INADDR_LOOPBACK)}};
};

TEST_F(PacedSenderTest, SendsAMessageInDatagramsOfTheLargestSize) {
  PacedSender sender(_socket, _log, shortPause);
  UdpClient client(noServer);
  EXPECT_TRUE(sender.send(client.address(), longMessage(3, 'a')));
  EXPECT_EQ(client.receive(), std::string(datagramBytes, 'a'));
  EXPECT_EQ(client.receive(), std::string(datagramBytes, 'a'));
  EXPECT_EQ(client.receive(), std::string(100, 'a'));
}

TEST_F(PacedSenderTest, PausesBetweenTheDatagramsOfAMessage) {
  constexpr std::chrono::milliseconds pause{50};
  PacedSender sender(_socket, _log, pause);
  UdpClient client(noServer);
  const auto start = std::chrono::steady_clock::now();
  sender.send(client.address(), longMessage(3, 'a'));
  receiveAll(&client, 3);
  EXPECT_GE(std::chrono::steady_clock::now() - start, 2 * pause);
}

TEST_F(PacedSenderTest, HasSeveralMessagesUnderWayAtATime) {
  PacedSender sender(_socket, _log, longPause);
  UdpClient first(noServer), second(noServer);
  sender.send(first.address(), longMessage(2, 'a'));
  EXPECT_EQ(first.receive(), std::string(datagramBytes, 'a'));
  // The first one pauses.
  sender.send(second.address(), longMessage(2, 'b'));
  EXPECT_EQ(second.receive(), std::string(datagramBytes, 'b'));
}

TEST_F(PacedSenderTest, KeepsTheDatagramsOfManyMessagesApart) {
  PacedSender sender(_socket, _log, shortPause);
  std::list<UdpClient> clients;
  for (char byte = 'a'; byte <= 'z'; ++byte)
    sender.send(clients.emplace_back(noServer).address(), longMessage(4, byte));
  char byte = 'a';
  for (UdpClient& client : clients) EXPECT_EQ(receiveAll(&client, 4), longMessage(4, byte++));
}

TEST_F(PacedSenderTest, GivesUpAMessageWhenItsReceiverIsSentAnother) {
  PacedSender sender(_socket, _log, longPause, 1);
  UdpClient client(noServer);
  sender.send(client.address(), longMessage(2, 'a'));
  EXPECT_EQ(client.receive(), std::string(datagramBytes, 'a'));
  EXPECT_TRUE(sender.send(client.address(), std::string(100, 'b')));
  EXPECT_EQ(client.receive(), std::string(100, 'b'));
}

TEST_F(PacedSenderTest, TakesNoMoreThanItsCapacity) {
  PacedSender sender(_socket, _log, longPause, 1);
  UdpClient first(noServer), second(noServer);
  EXPECT_TRUE(sender.send(first.address(), longMessage(2, 'a')));
  EXPECT_FALSE(sender.send(second.address(), longMessage(2, 'b')));
}

TEST_F(PacedSenderTest, MakesRoomWhenAMessageIsSent) {
  PacedSender sender(_socket, _log, shortPause, 1);
  UdpClient first(noServer), second(noServer);
  sender.send(first.address(), longMessage(2, 'a'));
  receiveAll(&first, 2);
  // It is off the list a moment after its last datagram has come.
  while (!sender.send(second.address(), longMessage(2, 'b'))) std::this_thread::yield();
  EXPECT_EQ(receiveAll(&second, 2), longMessage(2, 'b'));
}

TEST_F(PacedSenderTest, GivesUpWhatIsUnderWayToOneReceiver) {
  PacedSender sender(_socket, _log, longPause, 2);
  UdpClient first(noServer), second(noServer);
  sender.send(first.address(), longMessage(2, 'a'));
  sender.send(second.address(), longMessage(2, 'b'));
  EXPECT_EQ(first.receive(), std::string(datagramBytes, 'a'));
  sender.giveUp(first.address());
  UdpClient third(noServer), fourth(noServer);
  EXPECT_TRUE(sender.send(third.address(), longMessage(2, 'c'))) << "there is room again";
  EXPECT_EQ(third.receive(), std::string(datagramBytes, 'c'));
  EXPECT_FALSE(sender.send(fourth.address(), "d")) << "for one: the second is still under way";
}

TEST_F(PacedSenderTest, GivesUpWhatTheSystemDoesNotTake) {
  PacedSender sender(_socket, _log, longPause, 1);
  sockaddr_in broadcast{};
  broadcast.sin_addr.s_addr = htonl(INADDR_BROADCAST);
  broadcast.sin_port = htons(9);
  sender.send(PeerAddress(broadcast), longMessage(2, 'a'));
  UdpClient client(noServer);
  while (!sender.send(client.address(), "b")) std::this_thread::yield();
  EXPECT_EQ(client.receive(), "b");
}

TEST_F(PacedSenderTest, EndsWhileMessagesAreUnderWay) {
  UdpClient client(noServer);
  PacedSender sender(_socket, _log, longPause);
  sender.send(client.address(), longMessage(2, 'a'));
  EXPECT_EQ(client.receive(), std::string(datagramBytes, 'a'));
}

}  // namespace
}  // namespace dch
