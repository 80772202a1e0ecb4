// The kept rows that the real program answers, whole, in part and thinned.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <vector>

#include "dch/testkit/web_test.h"
#include "dch/web/moment.h"

namespace dch::testkit {
namespace {

using nlohmann::json;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

constexpr std::size_t timeColumn = 0, microsecondsColumn = 1, totalColumn = 5;

// Ten rows with the totals 0 to 9, of one and two by turns.
class ZordchdWebRowsTest : public WebTest {
 protected:
  ZordchdWebRowsTest() {
    const ZORA_Long handles[] = {addNumbers("one"), addNumbers("two")};
    for (std::size_t i = 0; i < 10; ++i)
      expectDone(numbersRow(handles[i % 2], static_cast<std::int64_t>(i)));
  }

  json rows(const std::string& parameters = "") const {
    return read(question + parameters).at("rows");
  }
  std::vector<int> totals(const std::string& parameters) const {
    std::vector<int> all;
    for (const auto& row : rows(parameters)) all.push_back(row.at(totalColumn));
    return all;
  }
  std::string timeOf(std::size_t row) const { return rows().at(row).at(timeColumn); }

  const std::string question = "/api/rows?application=NUMBERS&group=all";
};

TEST_F(ZordchdWebRowsTest, HasAllNewestLast) {
  const json answer = read(question);
  EXPECT_EQ(answer.size(), 2u);
  EXPECT_EQ(answer.at("columns"), json::parse(R"(["time", "time_us", "source", "handle", "code",
    "total", "processes", "note", "raw"])"));
  EXPECT_THAT(totals(""), ElementsAre(0, 1, 2, 3, 4, 5, 6, 7, 8, 9));
  const json first = answer.at("rows").at(0);
  EXPECT_EQ(first.at(timeColumn), momentText(first.at(microsecondsColumn).get<std::int64_t>()));
  EXPECT_EQ(first.at(2), "one");
  EXPECT_EQ(first.at(6), nullptr);
  EXPECT_EQ(first.at(7), "n");
  EXPECT_EQ(first.at(8), "0x01abff");
}

TEST_F(ZordchdWebRowsTest, HasARowAsSoonAsItIsAcknowledged) {
  const ZORA_Long handle = addNumbers("one");
  for (int total = 10; total < 30; ++total) {
    expectDone(numbersRow(handle, total));
    EXPECT_THAT(totals("&limit=1"), ElementsAre(total));
  }
}

TEST_F(ZordchdWebRowsTest, HasThoseOfASource) {
  EXPECT_THAT(totals("&source=two"), ElementsAre(1, 3, 5, 7, 9));
  EXPECT_THAT(totals("&source=two&limit=2"), ElementsAre(7, 9));
}

TEST_F(ZordchdWebRowsTest, LimitsThemToTheNewest) {
  EXPECT_THAT(totals("&limit=3"), ElementsAre(7, 8, 9));
  EXPECT_THAT(totals("&limit=1000000000"), SizeIs(10));
  EXPECT_THAT(totals("&limit=2&until=" + timeOf(5)), ElementsAre(4, 5));
}

TEST_F(ZordchdWebRowsTest, TakesTimesInEachForm) {
  const auto secondsOf = [&](std::size_t row) {
    std::string text = std::to_string(rows().at(row).at(microsecondsColumn).get<std::int64_t>());
    return text.insert(text.size() - 6, ".");
  };
  EXPECT_THAT(totals("&since=" + timeOf(7)), ElementsAre(7, 8, 9));
  EXPECT_THAT(totals("&until=" + timeOf(2)), ElementsAre(0, 1, 2));
  EXPECT_THAT(totals("&since=" + timeOf(2) + "&until=" + timeOf(3)), ElementsAre(2, 3));
  EXPECT_THAT(totals("&since=" + secondsOf(7)), ElementsAre(7, 8, 9));
  EXPECT_THAT(totals("&until=" + secondsOf(2)), ElementsAre(0, 1, 2));
  for (const char* all : {"&since=0", "&since=-7d", "&since=-24h", "&since=-60m", "&since=-3600s",
                          "&since=2026-01-31T23:59:59Z", "&until=2100-01-01T00:00:00Z",
                          "&until=2100-01-01T00:00:00.5Z"})
    EXPECT_THAT(totals(all), SizeIs(10)) << all;
  for (const char* none : {"&until=0", "&until=-7d", "&until=-24h", "&until=-15m", "&until=-3600s",
                           "&since=2100-01-01T00:00:00Z", "&since=4102444800.5"})
    EXPECT_THAT(totals(none), IsEmpty()) << none;
}

TEST_F(ZordchdWebRowsTest, ThinsNumbersToPoints) {
  const json one = read(question + "&points=1");
  EXPECT_EQ(one.at("columns").at(0), "time");
  EXPECT_EQ(one.at("columns").at(1), "time_us");
  EXPECT_EQ(one.at("columns").at(2), "total_min");
  EXPECT_EQ(one.at("columns").at(3), "total_max");
  EXPECT_EQ(one.at("columns").at(4), "total_mean");
  ASSERT_EQ(one.at("rows").size(), 1u);
  EXPECT_EQ(one.at("rows")[0][0], timeOf(0));
  EXPECT_EQ(one.at("rows")[0][2], 0);
  EXPECT_EQ(one.at("rows")[0][3], 9);
  EXPECT_DOUBLE_EQ(one.at("rows")[0][4].get<double>(), 4.5);
  const json two = read(question + "&points=1&source=two").at("rows");
  EXPECT_EQ(two[0][2], 1);
  EXPECT_EQ(two[0][3], 9);
  const json many = read(question + "&points=100000").at("rows");
  EXPECT_GE(many.size(), 1u);
  EXPECT_LE(many.size(), 10u);
  for (const auto& point : many) EXPECT_LE(point[2], point[3]);
  EXPECT_THAT(read(question + "&points=10&since=2100-01-01T00:00:00Z").at("rows"), IsEmpty());
}

TEST_F(ZordchdWebRowsTest, HasThemAsCsv) {
  const HttpAnswer answer = get(question + "&format=csv&limit=2");
  EXPECT_EQ(answer.status, 200);
  EXPECT_TRUE(answer.field("content-type").starts_with("text/csv")) << answer.field("content-type");
  std::string expected = "time,time_us,source,handle,code,total,processes,note,raw\n";
  for (const auto& row : rows("&limit=2"))
    expected += row[0].get<std::string>() + ',' + row[1].dump() + ',' + row[2].get<std::string>() +
                ',' + row[3].dump() + ',' + row[4].dump() + ',' + row[5].dump() + ",,n,0x01abff\n";
  EXPECT_EQ(answer.body, expected);
  const HttpAnswer thinned = get(question + "&format=csv&points=1");
  EXPECT_TRUE(thinned.body.starts_with("time,time_us,total_min,total_max,total_mean,"))
      << thinned.body;
}

TEST_F(ZordchdWebRowsTest, HasNumbersOf64BitsAndTextsOfAllKinds) {
  const ZORA_Long handle = addNumbers("odd,\"name\"");
  const std::string note = "a \"quoted\", text\nof <two> lines \xc3\xa4";
  for (const std::int64_t total :
       {std::int64_t{9'223'372'036'854'775'807}, -std::int64_t{9'223'372'036'854'775'807} - 1,
        std::int64_t{9'007'199'254'740'993}}) {
    expectDone(numbersRow(handle, total, note));
    const json row = rows("&limit=1").at(0);
    EXPECT_EQ(row.at(totalColumn).get<std::int64_t>(), total);
    EXPECT_EQ(row.at(7), note);
    EXPECT_EQ(row.at(2), "odd,\"name\"");
    const std::string csv = get(question + "&format=csv&limit=1").body;
    EXPECT_NE(csv.find(",\"odd,\"\"name\"\"\","), std::string::npos) << csv;
    EXPECT_NE(csv.find(',' + std::to_string(total) + ",,\"a \"\"quoted\"\", text\nof"),
              std::string::npos)
        << csv;
  }
  expectDone(numbersRow(handle, 0, "\xff\xfe"));
  EXPECT_EQ(rows("&limit=1").at(0).at(7), "0xfffe");
}

TEST_F(ZordchdWebRowsTest, HasMoreThanFitIntoOnePiece) {
  const ZORA_Long handle = addNumbers("one");
  const TcpClient connection(_server.port());
  constexpr int count = 4'000;
  const std::string note(190, 'x');
  for (int i = 10; i < count; ++i)
    ASSERT_EQ(statusOf(connection.ask(numbersRow(handle, i, note))), DCH_STATUS_OK);
  const HttpAnswer answer = get(question);
  EXPECT_TRUE(answer.isWhole);
  EXPECT_GT(answer.body.size(), 1'000'000u);
  const json all = answer.json().at("rows");
  ASSERT_EQ(all.size(), static_cast<std::size_t>(count));
  for (int i = 0; i < count; ++i) EXPECT_EQ(all[static_cast<std::size_t>(i)][totalColumn], i);
}

}  // namespace
}  // namespace dch::testkit
