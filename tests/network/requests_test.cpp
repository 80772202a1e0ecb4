// What a provider sees of a network that loses, repeats and delays its requests and their answers.
#include <gmock/gmock.h>

#include <map>

#include "dch/testkit/clients.h"
#include "dch/testkit/messages.h"
#include "tests/network/network_test.h"

namespace network {
namespace {

using dch::testkit::UdpClient;
using ::testing::HasSubstr;
using ::testing::Not;

class RequestsTest : public NetworkTest {
 protected:
  // A consumer whose datagrams take another way.
  void subscribe(UdpClient* consumer) {
    consumer->send(dch::testkit::subscribeMessage("NET", "rows"));
    EXPECT_TRUE(_server.waitForError("subscribed "));
  }
};

TEST_F(RequestsTest, ALostRequestGivesStatus5AndNothingWasDone) {
  EXPECT_EQ(registerNet(), good);
  ZORA_Long handle = noHandle;
  nextRequest(lost);
  EXPECT_EQ(goOnline(&handle), noAnswer);
  EXPECT_EQ(handle, noHandle);
  EXPECT_THAT(_server.standardError(), Not(HasSubstr("on line: ")));
  EXPECT_EQ(goOnline(&handle), good);
  EXPECT_NE(handle, noHandle);
}

TEST_F(RequestsTest, ALostAnswerGivesStatus5ThoughItWasDone) {
  EXPECT_EQ(registerNet(), good);
  ZORA_Long handle = noHandle;
  nextAnswer(lost);
  EXPECT_EQ(goOnline(&handle), noAnswer);
  EXPECT_EQ(handle, noHandle);
  EXPECT_TRUE(_server.waitForError("on line: NET rows host1, handle "));
  // Asked again, the DCH has the same handle for the same names.
  EXPECT_EQ(goOnline(&handle), good);
  EXPECT_THAT(_server.standardError(),
              HasSubstr("on line: NET rows host1, handle " + std::to_string(handle) + "\n"));
  EXPECT_EQ(sendRow(handle, "a row"), good);
}

TEST_F(RequestsTest, ARowThatIsSentAgainAfterStatus5MayComeTwice) {
  UdpClient consumer(_server.port());
  subscribe(&consumer);
  EXPECT_EQ(registerNet(), good);
  ZORA_Long handle = noHandle;
  EXPECT_EQ(goOnline(&handle), good);
  nextAnswer(lost);
  EXPECT_EQ(sendRow(handle, "again"), noAnswer);
  EXPECT_EQ(sendRow(handle, "again"), good);
  for (int copy = 0; copy < 2; ++copy)
    EXPECT_THAT(consumer.receive().value_or(""), HasSubstr("again"));
}

TEST_F(RequestsTest, ARowThatTheNetworkRepeatsIsPushedTwice) {
  UdpClient consumer(_server.port());
  subscribe(&consumer);
  EXPECT_EQ(registerNet(), good);
  ZORA_Long handle = noHandle;
  EXPECT_EQ(goOnline(&handle), good);
  nextRequest(twice);
  EXPECT_EQ(sendRow(handle, "repeated"), good);
  for (int copy = 0; copy < 2; ++copy)
    EXPECT_THAT(consumer.receive().value_or(""), HasSubstr("repeated"));
}

TEST_F(RequestsTest, AnOnlineRequestThatTheNetworkRepeatsGivesOneHandle) {
  EXPECT_EQ(registerNet(), good);
  ZORA_Long handle = noHandle;
  nextRequest(twice);
  EXPECT_EQ(goOnline(&handle), good);
  EXPECT_TRUE(_network.waitFor(Direction::toClient, 3));
  UdpClient other(_server.port());
  EXPECT_EQ(
      dch::testkit::onlineAnswerOf(other.ask(dch::testkit::onlineMessage("NET", "rows", "host1"))),
      (dch::testkit::OnlineAnswer{0, handle}));
}

TEST_F(RequestsTest, AnAnswerFromAnotherPortIsTaken) {
  _network.setFaults(faultOfAll(Direction::toClient, fromAnotherPort));
  EXPECT_EQ(registerNet(), good);
  ZORA_Long handle = noHandle;
  EXPECT_EQ(goOnline(&handle), good);
  EXPECT_NE(handle, noHandle);
}

TEST_F(RequestsTest, DelaysShorterThanTheTimeoutDoNoHarm) {
  setTimeout(20);
  _network.setFaults(
      randomFaults(20260131, {.delay = 0.9, .longestDelay = std::chrono::milliseconds(40)}));
  EXPECT_EQ(registerNet(), good);
  for (int i = 0; i < 30; ++i) {
    ZORA_Long handle = noHandle;
    EXPECT_EQ(goOnline(&handle), good);
    EXPECT_EQ(sendRow(handle, std::to_string(i)), good);
    EXPECT_EQ(goOffline(handle), good);
    EXPECT_EQ(goOffline(handle), answered(104));
  }
}

// Without repetition and without answers later than the time-out, an answer is always that to its
// request: whoever is told a handle has the handle of its own source.
TEST_F(RequestsTest, LossNeverGivesAWrongAnswer) {
  EXPECT_EQ(registerNet(), good);
  std::map<std::string, ZORA_Long> handles;
  int failures = 0;
  _network.setFaults(randomFaults(7, {.loss = 0.1}));
  for (int i = 0; i < 30; ++i) {
    const std::string source = "host" + std::to_string(i);
    ZORA_Long handle = noHandle;
    const Outcome outcome = goOnline(&handle, source.c_str());
    if (outcome == good) {
      handles[source] = handle;
    } else {
      EXPECT_EQ(outcome, noAnswer);
      ++failures;
    }
  }
  EXPECT_GT(failures, 0);
  _network.setFaults(noFaults());
  for (const auto& [source, handle] : handles) {
    ZORA_Long again = noHandle;
    EXPECT_EQ(goOnline(&again, source.c_str()), good);
    EXPECT_EQ(again, handle) << source;
  }
}

}  // namespace
}  // namespace network
