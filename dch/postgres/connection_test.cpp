// What a server says comes as it is; what it does not say is not waited for any longer than that.
#include "dch/postgres/connection.h"

#include <gmock/gmock.h>

#include <limits>

#include "dch/testkit/postgres_server.h"
#include "tests/support/sockets.h"

namespace dch::pg {
namespace {

using std::chrono::milliseconds;

constexpr Connection::Duration longEnough{60'000};

class ConnectionTest : public ::testing::Test {
 protected:
  // What the call throws.
  template <class Call>
  static Error errorOf(Call call) {
    try {
      call();
    } catch (const Error& error) {
      return error;
    }
    return {"none", "nothing was thrown"};
  }

  testkit::PostgresServer _server;
};

TEST_F(ConnectionTest, GivesValuesAsTheyWere) {
  Connection connection(_server.connectionString(), longEnough);
  const std::string bytes("a\0\xFF'\\", 5);
  for (const std::int64_t number :
       {std::int64_t{0}, std::int64_t{-1}, std::numeric_limits<std::int64_t>::max(),
        std::numeric_limits<std::int64_t>::min()}) {
    const Result result = connection.runPrepared("SELECT $1, $2, $3, $4, $2 = ''::bytea",
                                                 Parameters()
                                                     .add(number)
                                                     .addBytes(bytes)
                                                     .addText("\xC3\xA4'")
                                                     .addNull(Parameters::Type::text));
    ASSERT_EQ(result.rows(), 1);
    EXPECT_EQ(result.number(0, 0), number);
    EXPECT_EQ(result.bytes(0, 1), bytes);
    EXPECT_EQ(result.bytes(0, 2), "\xC3\xA4'");
    EXPECT_TRUE(result.isNull(0, 3));
    EXPECT_EQ(result.number(0, 4), 0);
  }
  EXPECT_FALSE(connection.run("SELECT $1", Parameters().addBytes({})).isNull(0, 0))
      << "no bytes are not null";
}

TEST_F(ConnectionTest, ToldOfAnErrorItGoesOn) {
  Connection connection(_server.connectionString(), longEnough);
  EXPECT_EQ(errorOf([&] { connection.execute("SELECT 1; SELECT 1 / 0; SELECT 2"); }).state(),
            "22012");
  EXPECT_EQ(errorOf([&] { connection.runPrepared("SELECT nothing"); }).state(), "42703");
  const Error missing = errorOf([&] { connection.run("SELECT * FROM missing"); });
  EXPECT_TRUE(missing.isOfClass("42"));
  EXPECT_STREQ(missing.what(), "relation \"missing\" does not exist");
  EXPECT_EQ(connection.execute("SELECT 3").bytes(0, 0), "3");
}

TEST_F(ConnectionTest, CountsWhatChanged) {
  Connection connection(_server.connectionString(), longEnough);
  connection.execute("CREATE TABLE t (n bigint); INSERT INTO t VALUES (1), (2), (3)");
  EXPECT_EQ(connection.run("DELETE FROM t WHERE n > $1", Parameters().add(1)).changes(), 2);
  EXPECT_EQ(connection.run("SELECT n FROM t").number(0, 0), 1);
}

TEST_F(ConnectionTest, GivesManyRowsOneAtATime) {
  Connection connection(_server.connectionString(), longEnough);
  std::int64_t sum = 0;
  connection.each("SELECT generate_series(1, $1::bigint)", Parameters().add(1'000),
                  [&](const Result& row) {
                    ASSERT_EQ(row.rows(), 1);
                    sum += row.number(0, 0);
                  });
  EXPECT_EQ(sum, 500'500);
  int before = 0;
  const Error error = errorOf([&] {
    connection.each("SELECT 1 / (5 - n) FROM generate_series(1, 10) AS n", {},
                    [&](const Result&) { ++before; });
  });
  EXPECT_EQ(error.state(), "22012");
  EXPECT_LT(before, 5);
  EXPECT_EQ(connection.execute("SELECT 3").bytes(0, 0), "3");
  EXPECT_THROW(connection.each("SELECT 1", {}, [](const Result&) { throw std::bad_alloc(); }),
               std::bad_alloc);
  EXPECT_TRUE(connection.isLost());
}

TEST_F(ConnectionTest, CopiesRows) {
  Connection connection(_server.connectionString(), longEnough);
  connection.execute("CREATE TABLE t (n bigint PRIMARY KEY, b bytea, s text)");
  constexpr std::string_view copyAll = "COPY t (n, b, s) FROM STDIN (FORMAT binary)";
  CopiedRows rows;
  const std::string large(100'000, '\xFE');
  for (std::int64_t number = 1; number <= 50; ++number) {
    rows.begin(3);
    rows.add(-number);
    rows.add(large);
    if (number % 2 == 0)
      rows.addNull();
    else
      rows.add(std::string_view());
  }
  EXPECT_EQ(rows.count(), 50u);
  connection.copy(std::string(copyAll), rows);
  const Result result = connection.execute(
      "SELECT count(*), min(n), sum(length(b)), count(s), max(s), "
      "count(*) FILTER (WHERE get_byte(b, 99999) = 254) FROM t");
  for (const auto& [column, value] :
       {std::pair(0, "50"), {1, "-50"}, {2, "5000000"}, {3, "25"}, {4, ""}, {5, "50"}})
    EXPECT_EQ(result.bytes(0, column), value);
  EXPECT_EQ(errorOf([&] { connection.copy(std::string(copyAll), rows); }).state(), "23505");
  EXPECT_EQ(
      errorOf([&] { connection.copy("COPY missing FROM STDIN (FORMAT binary)", rows); }).state(),
      "42P01");
  EXPECT_EQ(connection.execute("SELECT count(*) FROM t").bytes(0, 0), "50");
}

TEST_F(ConnectionTest, ATransactionIsKeptAsAWholeOrNotAtAll) {
  Connection connection(_server.connectionString(), longEnough);
  connection.execute("CREATE TABLE t (n bigint)");
  {
    Transaction transaction(connection);
    connection.execute("INSERT INTO t VALUES (1)");
    transaction.commit();
  }
  {
    Transaction transaction(connection);
    connection.execute("INSERT INTO t VALUES (2)");
  }
  {
    Transaction transaction(connection);
    connection.execute("INSERT INTO t VALUES (3)");
    EXPECT_THROW(connection.execute("SELECT 1 / 0"), Error);
    EXPECT_THROW(transaction.commit(), Error);
  }
  EXPECT_FALSE(connection.isInTransaction());
  EXPECT_EQ(connection.execute("SELECT array_agg(n) FROM t").bytes(0, 0), "{1}");
}

TEST_F(ConnectionTest, IsLostWhenTheServerEndsIt) {
  Connection connection(_server.connectionString(), longEnough);
  Connection other(_server.connectionString(), longEnough);
  other.execute("SELECT pg_terminate_backend(" + std::to_string(connection.serverProcess()) +
                ", 60000)");
  EXPECT_THROW(connection.execute("SELECT 1"), Error);
  EXPECT_TRUE(connection.isLost());
  EXPECT_THROW(connection.execute("SELECT 1"), Error);
  EXPECT_THROW(connection.runPrepared("SELECT 1"), Error);
  EXPECT_FALSE(other.isLost());
  _server.crash();
  EXPECT_THROW(other.execute("SELECT 1"), Error);
  EXPECT_TRUE(other.isLost());
  EXPECT_THROW(Connection(_server.connectionString(), longEnough), Error);
  _server.restart();
  EXPECT_EQ(Connection(_server.connectionString(), longEnough).execute("SELECT 1").rows(), 1);
}

// The server gives up by itself before the connection does.
TEST_F(ConnectionTest, AStatementThatTakesTooLongFailsAlone) {
  Connection connection(_server.connectionString(), milliseconds(20'000));
  connection.execute("SET statement_timeout = 50");
  EXPECT_EQ(errorOf([&] { connection.execute("SELECT pg_sleep(1000)"); }).state(), "57014");
  EXPECT_FALSE(connection.isLost());
}

TEST_F(ConnectionTest, TellsTheServerForHowLongItWaits) {
  Connection connection(_server.connectionString(), milliseconds(20'000));
  EXPECT_EQ(connection.execute("SHOW statement_timeout").bytes(0, 0), "10s");
}

TEST_F(ConnectionTest, IsLostWhenTheServerDoesNotAnswerInTime) {
  Connection connection(_server.connectionString(), milliseconds(5'000));
  connection.execute("SET statement_timeout = 0");
  EXPECT_THAT([&] { connection.execute("SELECT pg_sleep(1000)"); },
              testing::ThrowsMessage<Error>("the server does not answer in time"));
  EXPECT_TRUE(connection.isLost());
}

TEST(ConnectionWithoutAServerTest, DoesNotWaitForOneThatNeverAnswers) {
  const StreamListener listener;
  EXPECT_THAT(
      [&] {
        Connection("host=127.0.0.1 port=" + std::to_string(listener.port()), milliseconds(50));
      },
      testing::ThrowsMessage<Error>("the server does not answer in time"));
}

TEST(ConnectionWithoutAServerTest, SaysWhyThereIsNone) {
  EXPECT_THAT([] { Connection("host=/nowhere/at/all", longEnough); },
              testing::ThrowsMessage<Error>(testing::HasSubstr("/nowhere/at/all")));
  EXPECT_THAT([] { Connection("nonsense=1", longEnough); },
              testing::ThrowsMessage<Error>(testing::HasSubstr("nonsense")));
}

TEST(QuotedTest, MakesANameOfAnyText) {
  EXPECT_EQ(quoted("A.g"), "\"A.g\"");
  EXPECT_EQ(quoted("a\"b"), "\"a\"\"b\"");
}

}  // namespace
}  // namespace dch::pg
