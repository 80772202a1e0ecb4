// What becomes of answers that JetStream does not give.
#include <gtest/gtest.h>

#include <string>

#include "dch/testkit/link_test.h"
#include "dch/testkit/nats_server.h"
#include "dch/testkit/stand_in_stream.h"

namespace dch::testkit {

namespace {

const std::string unreadableAnswers[] = {
    "",
    "{",
    "[]",
    "7",
    R"("text")",
    "{}",
    R"({"error": 1})",
    R"({"error": {"err_code": "ten"}})",
    R"({"config": 1, "stream": 1})",
    R"({"config": {"subjects": 1}, "stream": "ZORD_ROWS", "duplicate": 1})",
    R"({"config": {"subjects": ["zord.rows.>"], "retention": "limits", "storage": 1}})",
    "{\"error\": {\"err_code\": 1, \"description\": \"\xff\"}}",
    std::string(100'000, '['),
};

constexpr char goodSettings[] =
    R"({"config": {"subjects": ["zord.rows.>"], "retention": "limits", "storage": "file"}})";

}  // namespace

TEST(UnreadableAnswersTest, OfTheStream) {
  const NatsServer server({.hasJetStream = false});
  const std::string expected = "what JetStream says of the stream ZORD_ROWS cannot be read";
  for (const std::string& answer : unreadableAnswers) {
    const StandInStream stream(server.url(), "$JS.API.>", answer);
    EXPECT_EQ(connectFault(server.url(), expected), expected) << answer.substr(0, 100);
  }
}

TEST(UnreadableAnswersTest, ToARow) {
  const NatsServer server({.hasJetStream = false});
  const StandInStream settings(server.url(), "$JS.API.>", goodSettings);
  const auto stream = connectTo(server.url());
  for (const std::string& text : unreadableAnswers) {
    const StandInStream rows(server.url(), "zord.rows.>", text);
    const auto answer = answerTo(*stream, rowOf(8));
    EXPECT_EQ(answer.kind, RowStream::Answer::Kind::refused);
    EXPECT_EQ(answer.number, 8);
    EXPECT_EQ(answer.reason, "the server's answer cannot be read") << text.substr(0, 100);
  }
}

}  // namespace dch::testkit
