#include "dch/link/row_stream.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <string>

#include "dch/testkit/jet_stream.h"
#include "dch/testkit/link_test.h"
#include "dch/testkit/nats_server.h"
#include "dch/testkit/stream_reader.h"

namespace dch::testkit {

namespace {

using Kind = RowStream::Answer::Kind;
using Sent = RowStream::Sent;

// The threads of this process, and whether they leave SIGTERM to others.
std::map<std::string, bool> threadsWithoutSigterm() {
  std::map<std::string, bool> threads;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/task")) {
    std::ifstream status(entry.path() / "status");
    for (std::string line; std::getline(status, line);)
      if (line.starts_with("SigBlk:"))
        threads[entry.path().filename()] =
            (std::stoull(line.substr(7), nullptr, 16) >> (SIGTERM - 1) & 1) != 0;
  }
  return threads;
}

}  // namespace

class RowStreamTest : public ::testing::Test {
 protected:
  NatsServer server;
};

TEST_F(RowStreamTest, SendsWhatARowHas) {
  const auto stream = connectTo(server.url());
  const std::string bytes("\0\xff\r\n\xc3", 5);
  const auto answer = answerTo(*stream, {.number = 12'345'678'901,
                                         .subject = "zord.rows.site1.A%2E.g",
                                         .id = "an-id",
                                         .header = "1 a b",
                                         .message = bytes});
  EXPECT_EQ(answer.number, 12'345'678'901);
  EXPECT_EQ(answer.kind, Kind::taken);

  const auto rows = readStream(server.url(), 1);
  ASSERT_EQ(rows.size(), 1u);
  EXPECT_EQ(rows[0].subject, "zord.rows.site1.A%2E.g");
  EXPECT_EQ(rows[0].id, "an-id");
  EXPECT_EQ(rows[0].header, "1 a b");
  EXPECT_EQ(rows[0].message, bytes);
}

TEST_F(RowStreamTest, KeepsTheOrderOfManyRows) {
  constexpr std::int64_t count = 3'000;
  constexpr std::int64_t atOnce = 100;
  const auto stream = connectTo(server.url());
  std::set<std::int64_t> answered;
  for (std::int64_t number = 1; number <= count; ++number) {
    ASSERT_EQ(stream->send(rowOf(number)), Sent::yes);
    while (number - static_cast<std::int64_t>(answered.size()) >= atOnce)
      answered.insert(answerFrom(*stream).number);
  }
  while (answered.size() < count) answered.insert(answerFrom(*stream).number);
  EXPECT_EQ(*answered.begin(), 1);
  EXPECT_EQ(*answered.rbegin(), count);

  const auto rows = readStream(server.url(), count);
  ASSERT_EQ(rows.size(), static_cast<std::size_t>(count));
  for (std::int64_t number = 1; number <= count; ++number)
    ASSERT_EQ(rows[static_cast<std::size_t>(number - 1)].message, rowOf(number).message);
}

TEST_F(RowStreamTest, SaysThatARowIsThereAlready) {
  askJetStream(server.url(), "CREATE", R"({"duplicate_window": 3600000000000})");
  const auto stream = connectTo(server.url());
  EXPECT_EQ(answerTo(*stream, rowOf(1)).kind, Kind::taken);
  OutgoingRow other = rowOf(2);
  other.id = rowOf(1).id;
  const auto answer = answerTo(*stream, other);
  EXPECT_EQ(answer.kind, Kind::duplicate);
  EXPECT_EQ(answer.number, 2);
  EXPECT_EQ(readStream(server.url(), 1).size(), 1u);
}

TEST_F(RowStreamTest, TakesRowsWithoutAnIdAgainAndAgain) {
  const auto stream = connectTo(server.url());
  OutgoingRow row = rowOf(1);
  row.id.clear();
  EXPECT_EQ(answerTo(*stream, row).kind, Kind::taken);
  EXPECT_EQ(answerTo(*stream, row).kind, Kind::taken);
  const auto rows = readStream(server.url(), 2);
  EXPECT_EQ(rows.size(), 2u);
  EXPECT_EQ(rows[1].id, "");
}

TEST_F(RowStreamTest, HasNoAnswerWhileNothingWasSent) {
  const auto stream = connectTo(server.url());
  EXPECT_FALSE(stream->nextAnswer(std::chrono::milliseconds(0)).has_value());
  EXPECT_FALSE(stream->nextAnswer(std::chrono::milliseconds(1)).has_value());
}

TEST_F(RowStreamTest, LeavesSignalsToTheThreadsOfTheProgram) {
  const auto before = threadsWithoutSigterm();
  const auto stream = connectTo(server.url());
  int more = 0;
  for (const auto& [thread, isWithout] : threadsWithoutSigterm()) {
    if (before.contains(thread)) continue;
    EXPECT_TRUE(isWithout) << thread;
    ++more;
  }
  EXPECT_GT(more, 0);
}

TEST_F(RowStreamTest, SaysThatNoStreamTakesRows) {
  const auto stream = connectTo(server.url());
  askJetStream(server.url(), "DELETE");
  const auto answer = answerTo(*stream, rowOf(1));
  EXPECT_EQ(answer.kind, Kind::refused);
  EXPECT_EQ(answer.reason, "no stream takes rows now");
}

TEST_F(RowStreamTest, SaysThatAnotherStreamTakesTheRows) {
  const auto stream = connectTo(server.url());
  askJetStream(server.url(), "UPDATE", R"({"subjects": ["elsewhere.>"]})");
  askJetStream(server.url(), "CREATE", R"({"name": "OTHER"})");
  const auto answer = answerTo(*stream, rowOf(7));
  EXPECT_EQ(answer.kind, Kind::refused);
  EXPECT_EQ(answer.number, 7);
  EXPECT_EQ(answer.reason, "the stream 'OTHER' takes the rows");
}

TEST_F(RowStreamTest, PassesOnWhyTheStreamRefusesARow) {
  askJetStream(server.url(), "CREATE", R"({"max_bytes": 200, "discard": "new"})");
  const auto stream = connectTo(server.url());
  EXPECT_EQ(answerTo(*stream, rowOf(1)).kind, Kind::taken);
  OutgoingRow row = rowOf(2);
  row.message.assign(200, 'x');
  const auto answer = answerTo(*stream, row);
  EXPECT_EQ(answer.kind, Kind::refused);
  EXPECT_EQ(answer.number, 2);
  EXPECT_EQ(answer.reason, "maximum bytes exceeded");
}

// The stream's limit, the server's, that of its lines and that of its headers.
TEST_F(RowStreamTest, SaysThatARowIsTooLargeAndGoesOn) {
  askJetStream(server.url(), "CREATE", R"({"max_msg_size": 1048576})");
  const auto stream = connectTo(server.url());
  OutgoingRow row = rowOf(1);
  row.message.assign((1 << 20) + 1, 'x');
  EXPECT_EQ(stream->send(row), Sent::tooLarge);
  row = rowOf(2);
  row.subject += std::string(4'096, 'x');
  EXPECT_EQ(stream->send(row), Sent::tooLarge);
  row = rowOf(3);
  row.header.assign(65'536, 'x');
  EXPECT_EQ(answerTo(*stream, row).kind, Kind::tooLarge);

  askJetStream(server.url(), "UPDATE", R"({"max_msg_size": 1000})");
  row = rowOf(4);
  row.message.assign(1'000, 'x');
  const auto answer = answerTo(*stream, row);
  EXPECT_EQ(answer.kind, Kind::tooLarge);
  EXPECT_EQ(answer.number, 4);
  EXPECT_EQ(answer.reason, "message size exceeds maximum allowed");

  EXPECT_EQ(answerTo(*stream, rowOf(5)).kind, Kind::taken);
}

// Up to the longest that is sent at all.
TEST_F(RowStreamTest, KeepsTheConnectionWithTheLongestSubjects) {
  const auto stream = connectTo(server.url());
  OutgoingRow row = rowOf(1);
  row.subject += std::string(3'900 - row.subject.size(), 'x');
  while (stream->send(row) == Sent::yes) {
    ASSERT_EQ(answerFrom(*stream).kind, Kind::taken) << row.subject.size();
    row.id.clear();
    row.subject += 'x';
  }
  EXPECT_LT(row.subject.size(), 4'096u);
  EXPECT_EQ(answerTo(*stream, rowOf(2)).kind, Kind::taken);
}

}  // namespace dch::testkit
