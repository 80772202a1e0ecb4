// What becomes of a stream whose server ends, stands still or is cut off.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>

#include "dch/testkit/jet_stream.h"
#include "dch/testkit/link_test.h"
#include "dch/testkit/nats_server.h"
#include "dch/testkit/stream_reader.h"
#include "dch/testkit/tcp_gate.h"

namespace dch::testkit {

using ::testing::StartsWith;

class LostConnectionTest : public ::testing::Test {
 protected:
  // A window of an hour, so that no test depends on how long it takes.
  LostConnectionTest() {
    askJetStream(server.url(), "CREATE", R"({"duplicate_window": 3600000000000})");
  }

  std::string lost(const std::string& what = "") const {
    return gate.natsUrl() + ": the connection was lost: " + what;
  }

  // Sends rows until that is no longer possible, and returns what is said of it.
  static std::string sendUntilLost(RowStream& stream) {
    const auto end = std::chrono::steady_clock::now() + linkPatience;
    OutgoingRow row = rowOf(1);
    row.message.assign(100'000, 'x');
    try {
      while (std::chrono::steady_clock::now() < end) stream.send(row);
    } catch (const LinkError& error) {
      return error.what();
    }
    return "it is not lost";
  }

  // Sends `count` rows, some at a time, and all that were not answered again whenever the
  // connection is lost. `trouble` comes once, when some are answered and others are on their way.
  void sendThrough(const std::function<void()>& trouble) {
    constexpr std::int64_t atOnce = 50;
    std::set<std::int64_t> waiting;
    for (std::int64_t number = 1; number <= count; ++number) waiting.insert(number);
    bool isTroubled = false;
    while (!waiting.empty()) {
      const auto stream = connectTo(gate.natsUrl());
      try {
        std::set<std::int64_t> toSend = waiting;
        std::int64_t onTheirWay = 0;
        while (!waiting.empty()) {
          while (!toSend.empty() && onTheirWay < atOnce) {
            stream->send(rowOf(*toSend.begin()));
            toSend.erase(toSend.begin());
            ++onTheirWay;
          }
          if (!isTroubled && waiting.size() < count / 2) {
            isTroubled = true;
            trouble();
          }
          const auto answer = answerFrom(*stream);
          ASSERT_THAT(answer.kind, ::testing::AnyOf(RowStream::Answer::Kind::taken,
                                                    RowStream::Answer::Kind::duplicate))
              << answer.reason;
          ASSERT_EQ(waiting.erase(answer.number), 1u);
          --onTheirWay;
        }
      } catch (const LinkError&) {  // those that wait are sent again
      }
    }
    EXPECT_TRUE(isTroubled);
  }

  void expectEachRowOnce() const {
    std::map<std::string, int> times;
    for (const StreamedRow& row : readStream(server.url(), count)) ++times[row.message];
    EXPECT_EQ(times.size(), static_cast<std::size_t>(count));
    for (std::int64_t number = 1; number <= count; ++number)
      ASSERT_EQ(times[rowOf(number).message], 1) << number;
  }

  static constexpr std::int64_t count = 1'000;
  NatsServer server;
  TcpGate gate{server.port()};
};

TEST_F(LostConnectionTest, TheServerIsKilled) {
  const auto stream = connectTo(gate.natsUrl());
  server.kill();
  EXPECT_EQ(lossOf(*stream), lost("Connection Closed"));
  EXPECT_THROW(stream->send(rowOf(1)), LinkError);
  EXPECT_THROW(stream->nextAnswer(std::chrono::milliseconds(0)), LinkError);
}

TEST_F(LostConnectionTest, TheServerStandsStill) {
  const auto stream = connectTo(gate.natsUrl());
  server.stop();
  EXPECT_EQ(lossOf(*stream), lost("Stale Connection"));
  server.resume();
}

TEST_F(LostConnectionTest, TheServerStandsStillWhileRowsAreSent) {
  const auto stream = connectTo(gate.natsUrl());
  server.stop();
  EXPECT_THAT(sendUntilLost(*stream), StartsWith(lost()));
  server.resume();
}

TEST_F(LostConnectionTest, TheNetworkIsCut) {
  const auto stream = connectTo(gate.natsUrl());
  gate.cut();
  EXPECT_EQ(lossOf(*stream), lost("Connection Closed"));
}

TEST_F(LostConnectionTest, TheNetworkPassesNothing) {
  const auto stream = connectTo(gate.natsUrl());
  gate.hold();
  EXPECT_EQ(lossOf(*stream), lost("Stale Connection"));
}

TEST_F(LostConnectionTest, TheNetworkPassesNothingWhileRowsAreSent) {
  const auto stream = connectTo(gate.natsUrl());
  gate.hold();
  EXPECT_THAT(sendUntilLost(*stream), StartsWith(lost()));
}

TEST_F(LostConnectionTest, TheNetworkIsCutWithRowsOnTheirWay) {
  sendThrough([this] {
    gate.cut();
    gate.pass();
  });
  expectEachRowOnce();
}

TEST_F(LostConnectionTest, TheServerIsKilledWithRowsOnTheirWay) {
  sendThrough([this] {
    server.kill();
    server.restart();
    gate.leadTo(server.port());
  });
  expectEachRowOnce();
}

TEST_F(LostConnectionTest, TheServerStandsStillWithRowsOnTheirWay) {
  sendThrough([this] {
    server.stop();
    gate.cut();
    server.resume();
    gate.pass();
  });
  expectEachRowOnce();
}

}  // namespace dch::testkit
