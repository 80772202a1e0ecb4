// Answers of several datagrams on a network that loses, repeats and reorders them. Nothing but
// their sizes ties the datagrams of an answer together: they have to add up to the length that the
// first one begins with.
#include <gmock/gmock.h>

#include <algorithm>
#include <thread>

#include "dch/testkit/clients.h"
#include "dch/testkit/messages.h"
#include "tests/network/network_test.h"

namespace network {
namespace {

using dch::testkit::UdpClient;

class LongAnswersTest : public NetworkTest {
 protected:
  LongAnswersTest() {
    UdpClient provider(_server.port());
    for (int i = 100; i < 100 + applications; ++i) {
      const std::string name = "APPL" + std::to_string(i);
      const std::string key = std::to_string(i);
      EXPECT_EQ(
          dch::testkit::statusOf(provider.ask(dch::testkit::registerMessage(
              "appl:" + name + "," + key + ";group:a_group_with_thirty_two_letters_;attr:a,N,4;",
              name, key))),
          0);
    }
  }

  struct Answer {
    int result = -1;
    std::string text;
  };

  // An answer of two datagrams.
  static Answer askForApplications() {
    ZORA_Long length = -1;
    char* text = nullptr;
    Answer answer;
    answer.result = dc_getApplications(&length, &text, nullptr, 10);
    if (text != nullptr) answer.text = std::string(text, static_cast<std::size_t>(length));
    std::free(text);
    return answer;
  }

  static void expectWhole(const Answer& answer) {
    EXPECT_EQ(answer.result, 0);
    EXPECT_GT(answer.text.size(), 8192U);
    EXPECT_EQ(std::count(answer.text.begin(), answer.text.end(), '\n'), applications);
  }

  static void expectNone(const Answer& answer) {
    EXPECT_EQ(answer.result, 1);
    EXPECT_EQ(answer.text, "");
  }

  static constexpr int applications = 200;
};

TEST_F(LongAnswersTest, ComeWhole) {
  expectWhole(askForApplications());
}

// The wait for a further datagram is ten seconds, and once more as long.
TEST_F(LongAnswersTest, FailWhenTheirEndIsLost) {
  _network.setFaults(faultOf(Direction::toClient, 1, lost));
  expectNone(askForApplications());
  _network.setFaults(noFaults());
  expectWhole(askForApplications());
}

// The rest is taken for a message of its own, whose length makes no sense, and is waited for.
TEST_F(LongAnswersTest, FailWhenTheirBeginningIsLost) {
  _network.setFaults(faultOf(Direction::toClient, 0, lost));
  expectNone(askForApplications());
  _network.setFaults(noFaults());
  expectWhole(askForApplications());
}

TEST_F(LongAnswersTest, FailWhenTheirBeginningComesTwiceAndLeaveTheirEndForTheNextRequest) {
  _network.setFaults(faultOf(Direction::toClient, 0, twice));
  expectNone(askForApplications());
  EXPECT_TRUE(_network.waitFor(Direction::toClient, 2));
  _network.setFaults(noFaults());
  EXPECT_EQ(registerNet(), noAnswer) << "what is left over is no message";
  EXPECT_EQ(registerNet(), good) << "the answer to the one before";
}

TEST_F(LongAnswersTest, FailWhenTheirDatagramsAreReordered) {
  _network.setFaults(faultOf(Direction::toClient, 0, late));
  std::thread release([this] {
    EXPECT_TRUE(_network.waitFor(Direction::toClient, 2));
    _network.release();
  });
  expectNone(askForApplications());
  release.join();
}

}  // namespace
}  // namespace network
