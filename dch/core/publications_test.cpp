// Rows to many subscribers, which are sent piece by piece.
#include "dch/core/publications.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "dch/core/publisher.h"
#include "dch/testkit/error_log.h"
#include "dch/testkit/recording_ports.h"

namespace dch {
namespace {

using Texts = std::vector<std::string>;

PeerAddress subscriberAt(std::size_t number) {
  sockaddr_in address{};
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(static_cast<std::uint16_t>(number));
  return PeerAddress(address);
}

class PublicationsTest : public ::testing::Test {
 protected:
  static constexpr std::size_t many = 3 * Publisher::pieceSize;

  PublicationsTest() {
    for (std::size_t i = 1; i <= many; ++i) _publisher.subscribe("many", subscriberAt(i));
  }

  void publishAll() {
    while (_publisher.isPublishing()) _publisher.publishMore();
  }

  testkit::RecordingRowsOut _rowsOut;
  Subscriptions _subscriptions;
  Counters _counters;
  const testkit::ErrorLog _log{false};
  Publisher _publisher{_subscriptions, _rowsOut, _counters, _log};
};

TEST_F(PublicationsTest, SendsToFewAtOnce) {
  _publisher.subscribe("few", subscriberAt(1));
  _publisher.publish("few", "row");
  EXPECT_FALSE(_publisher.isPublishing());
  EXPECT_EQ(_rowsOut.take(subscriberAt(1)), Texts{"row"});
}

TEST_F(PublicationsTest, SendsToManyPieceByPieceAndKeepsTheOrderForEach) {
  _publisher.subscribe("few", subscriberAt(1));
  for (const char* row : {"1", "2"}) _publisher.publish("many", row);
  _publisher.publish("few", "3");
  EXPECT_EQ(_rowsOut.pushed.size(), 0u);
  for (std::size_t pieces = 1; pieces <= 2 * many / Publisher::pieceSize; ++pieces) {
    EXPECT_TRUE(_publisher.isPublishing());
    _publisher.publishMore();
    EXPECT_EQ(_rowsOut.pushed.size(), pieces * Publisher::pieceSize);
  }
  _publisher.publishMore();
  EXPECT_FALSE(_publisher.isPublishing());
  EXPECT_EQ(_rowsOut.take(subscriberAt(1)), (Texts{"1", "2", "3"}));
  for (std::size_t i = 2; i <= many; ++i)
    EXPECT_EQ(_rowsOut.take(subscriberAt(i)), (Texts{"1", "2"}));
  EXPECT_EQ(_counters[Counter::pushed], 2 * many + 1);
}

TEST_F(PublicationsTest, SendsARowToThoseWhoHadSubscribedWhenItWasPublished) {
  _publisher.publish("many", "1");
  _publisher.publishMore();
  _publisher.subscribe("many", subscriberAt(many + 1));
  _publisher.publish("many", "2");
  publishAll();
  EXPECT_EQ(_rowsOut.take(subscriberAt(many + 1)), Texts{"2"});
  EXPECT_EQ(_rowsOut.take(subscriberAt(1)), (Texts{"1", "2"}));
}

TEST_F(PublicationsTest, SendsNothingMoreToOneThatHasWithdrawn) {
  for (const char* row : {"1", "2"}) _publisher.publish("many", row);
  for (const std::size_t each : {1u, 2u})
    EXPECT_TRUE(_publisher.withdraw("many", subscriberAt(each)));
  // What was published before it came back was not for it.
  _publisher.subscribe("many", subscriberAt(2));
  _publisher.publish("many", "3");
  publishAll();
  EXPECT_EQ(_rowsOut.take(subscriberAt(1)), Texts());
  EXPECT_EQ(_rowsOut.take(subscriberAt(2)), Texts{"3"});
  EXPECT_EQ(_rowsOut.take(subscriberAt(3)), (Texts{"1", "2", "3"}));
  EXPECT_EQ(_counters[Counter::pushesLost], 0u);
}

TEST_F(PublicationsTest, SendsNoMoreThanAPieceWhateverIsAskedMeanwhile) {
  constexpr std::size_t rows = 2 * Publications::mostMessages;
  const auto expectFew = [&] {
    EXPECT_LE(_rowsOut.pushed.size(), Publisher::pieceSize);
    _rowsOut.pushed.clear();
  };
  for (std::size_t i = 0; i < rows; ++i) {
    _publisher.publish("many", "row");
    expectFew();
  }
  _publisher.subscribe("few", subscriberAt(1));
  expectFew();
  _publisher.withdraw("few", subscriberAt(1));
  expectFew();
  _publisher.publishTo("many", subscriberAt(1), "event");
  expectFew();
  _publisher.dropSubscribers([](const PeerAddress& each) { return each == subscriberAt(1); });
  expectFew();
  while (_publisher.isPublishing()) {
    _publisher.publishMore();
    expectFew();
  }
  EXPECT_EQ(_counters[Counter::pushed], rows * (many - 1) + 1);
}

TEST_F(PublicationsTest, SendsManyMessagesToFewPieceByPiece) {
  constexpr std::size_t messages = 10 * Publisher::pieceSize;
  for (const std::size_t each : {1u, 2u}) _publisher.subscribe("few", subscriberAt(each));
  for (std::size_t i = 0; i < messages; ++i) _publisher.publish("few", std::to_string(i), messages);
  EXPECT_EQ(_rowsOut.pushed.size(), 0u);
  for (std::size_t pieces = 1; _publisher.isPublishing(); ++pieces) {
    _publisher.publishMore();
    EXPECT_EQ(_rowsOut.pushed.size(), pieces * Publisher::pieceSize);
  }
  const Texts received = _rowsOut.take(subscriberAt(2));
  ASSERT_EQ(received.size(), messages);
  for (std::size_t i = 0; i < messages; ++i) EXPECT_EQ(received[i], std::to_string(i));
}

TEST_F(PublicationsTest, SendsNothingMoreToWhomARowFoundGone) {
  for (const char* row : {"1", "2"}) _publisher.publish("many", row);
  _publisher.publishMore();
  _rowsOut.gone = {subscriberAt(1)};
  publishAll();
  EXPECT_EQ(_rowsOut.take(subscriberAt(1)), Texts{"1"});
  EXPECT_EQ(_counters[Counter::subscribersGone], 1u);
  EXPECT_EQ(_counters[Counter::pushed], 2 * many - 1);
}

TEST_F(PublicationsTest, DropsOneThatAnswersWhatItIsSent) {
  for (const std::size_t each : {1u, 2u}) _publisher.subscribe("few", subscriberAt(each));
  _publisher.subscribe("status", subscriberAt(many + 1));
  EXPECT_FALSE(_publisher.dropAnswering(subscriberAt(1))) << "it was sent nothing";
  _publisher.publish("few", "row");
  EXPECT_TRUE(_publisher.dropAnswering(subscriberAt(1)));
  _publisher.publishTo("status", subscriberAt(many + 1), "event");
  EXPECT_TRUE(_publisher.dropAnswering(subscriberAt(many + 1)));
  EXPECT_FALSE(_publisher.dropAnswering(subscriberAt(many + 2))) << "a stranger";
  _publisher.publish("many", "row");
  EXPECT_FALSE(_publisher.dropAnswering(subscriberAt(many))) << "it is sent something later";
  publishAll();
  EXPECT_TRUE(_publisher.dropAnswering(subscriberAt(many)));
  EXPECT_EQ(_counters[Counter::subscribersGone], 3u);
  EXPECT_EQ(_subscriptions.find("few")->size(), 1u);
  EXPECT_EQ(_subscriptions.find("many")->size(), many - 2);
}

TEST_F(PublicationsTest, CountsWhatEachSubscriberLoses) {
  _rowsOut.full = {subscriberAt(1), subscriberAt(many)};
  for (const char* row : {"1", "2"}) _publisher.publish("many", row);
  publishAll();
  EXPECT_EQ(_counters[Counter::pushesLost], 4u);
  EXPECT_EQ(_counters[Counter::pushed], 2 * (many - 2));
  for (const std::size_t each : {std::size_t{1}, many})
    EXPECT_EQ(_subscriptions.find("many")->at(subscriberAt(each)).lostRows, 2u);
}

TEST_F(PublicationsTest, SayThatTheyHaveNoRoomAndSendWhatIsPublishedNevertheless) {
  constexpr std::size_t rows = 2 * Publications::mostMessages;
  for (std::size_t i = 0; i < rows; ++i) {
    const bool isFull = i >= Publications::mostMessages || i * many >= Publications::mostReceivers;
    EXPECT_EQ(_publisher.hasRoom(), !isFull) << i;
    _publisher.publish("many", std::to_string(i));
  }
  publishAll();
  EXPECT_TRUE(_publisher.hasRoom());
  EXPECT_EQ(_rowsOut.pushed.size(), rows * many);
  const Texts received = _rowsOut.take(subscriberAt(many));
  ASSERT_EQ(received.size(), rows);
  for (std::size_t i = 0; i < rows; ++i) EXPECT_EQ(received[i], std::to_string(i));
}

}  // namespace
}  // namespace dch
