// The same bytes over a connection, in whatever pieces they come, are answered the same.
#include <gtest/gtest.h>

#include <iostream>
#include <random>

#include "dch/testkit/clients.h"
#include "dch/testkit/messages.h"
#include "dch/testkit/server_process.h"
#include "tests/support/variables.h"
#include "zordchcl/messages.h"
#include "zordchcl/status.h"

namespace dch::testkit {
namespace {

class ZordchdPiecesTest : public ::testing::Test {
 protected:
  ZordchdPiecesTest() {
    for (const std::string& request : requestsOfEachKind("HOSTMON", 1)) _bytes += request;
    // Bad ones among them, and as the last one something that ends the connection.
    _bytes += withLengthWord(offlineMessage(1) + 'x', 25);
    _bytes += withLengthWord(catalogueMessage(0x0fff), 12) + offlineMessage(77);
    _bytes += std::string(4, '\0') + registerMessage();
  }

  // All answers to the bytes when they come in pieces that end there.
  std::string answersTo(const std::vector<std::size_t>& ends) {
    const TcpClient client(_server.port());
    std::size_t begin = 0;
    for (const std::size_t end : ends) {
      client.send(_bytes.substr(begin, end - begin));
      begin = end;
      // By the time that somebody else is answered the piece has been taken, as a rule.
      _other.ask(catalogueMessage(DCH_REQUEST_HELP, "NONE"));
    }
    client.send(_bytes.substr(begin));
    client.finishSending();
    return client.StreamSocket::receive(std::string::npos);
  }

  ServerProcess _server;
  const UdpClient _other{_server.port()};
  std::string _bytes;
};

TEST_F(ZordchdPiecesTest, AreAnsweredTheSameWhereverTheyAreCut) {
  const std::string expected = answersTo({});
  // Of each kind, of the bad ones, and of what is no message.
  ASSERT_GT(expected.size(), 15u * 14u);
  for (std::size_t cut = 1; cut < _bytes.size(); ++cut)
    ASSERT_EQ(answersTo({cut}), expected) << "cut at " << cut;
}

TEST_F(ZordchdPiecesTest, AreAnsweredTheSameInManyPieces) {
  const unsigned seed = numberFrom("ZORD410_SEED", std::random_device()());
  std::cout << "ZORD410_SEED=" << seed << '\n';
  std::mt19937 random(seed);
  const std::string expected = answersTo({});
  for (int round = 0; round < 100; ++round) {
    std::vector<std::size_t> ends;
    const std::size_t longest = 1 + random() % (round % 2 == 0 ? 8 : 200);
    for (std::size_t end = 0; (end += 1 + random() % longest) < _bytes.size();) ends.push_back(end);
    ASSERT_EQ(answersTo(ends), expected) << "round " << round;
  }
}

}  // namespace
}  // namespace dch::testkit
