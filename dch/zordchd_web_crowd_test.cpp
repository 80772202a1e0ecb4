// What the real program makes of crowds of browsers, and of those that do not read.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <list>
#include <string>

#include "dch/testkit/bystander.h"
#include "dch/testkit/web_test.h"
#include "tests/support/wait_until.h"

namespace dch::testkit {
namespace {

using ::testing::HasSubstr;

constexpr std::size_t fullHouse = 256;  // connections that the page has at a time
constexpr char liveNumbers[] = "/api/live?application=NUMBERS&group=all";

class ZordchdWebCrowdTest : public WebTest {
 protected:
  // Rows of 190 bytes of text.
  void keepRows(ZORA_Long handle, int count) const {
    const TcpClient connection(_server.port());
    for (int i = 0; i < count; ++i)
      ASSERT_EQ(statusOf(connection.ask(numbersRow(handle, i, std::string(190, 'x')))),
                DCH_STATUS_OK);
  }
};

TEST_F(ZordchdWebCrowdTest, AnswersWhoAsksAmongThousandsWhoDoNot) {
  const long before = residentMemory();
  const Bystander bystander(_server.port());
  std::list<HttpClient> silent;
  bystander.expectIsServed([&] {
    for (int i = 0; i < 100; ++i) {
      // Some begin, and go on so slowly that they never end.
      const HttpClient& client = silent.emplace_back(_page);
      if (i % 2 == 0) client.send("GET / HT");
    }
    while (silent.size() > 2 * fullHouse) silent.pop_front();
    for (const HttpClient& each : silent) each.send("T");
    EXPECT_EQ(get("/healthz").status, 200);
  });
  EXPECT_EQ(get("/api/state").status, 200);
  EXPECT_LE(figure("gauges", "web_connections"), static_cast<std::int64_t>(fullHouse));
  EXPECT_GT(figure("counters", "web_connections_given_up"), 0);
  expectNoMoreMemoryThan(before + 32 * 1'024);
}

TEST_F(ZordchdWebCrowdTest, AnswersWhoAsksAmongThoseWhoAreRefused) {
  std::list<HttpClient> refused;
  for (std::size_t i = 0; i < 2 * fullHouse; ++i) {
    refused.emplace_back(_page).send("garbage\r\n\r\n");
    EXPECT_EQ(refused.back().receiveAnswer().status, 400);
  }
  EXPECT_EQ(get("/healthz").status, 200);
}

// Of the page's own files, and of kept rows.
TEST_F(ZordchdWebCrowdTest, AnswersWhoAsksAmongThoseWhoDoNotRead) {
  keepRows(addNumbers(), 3'000);
  const long before = residentMemory();
  const Bystander bystander(_server.port());
  const std::string rows = HttpClient::request("/api/rows?application=NUMBERS&group=all");
  const std::string file = HttpClient::request("/dygraph.min.js");
  ASSERT_GT(get("/dygraph.min.js").body.size(), 100'000u);
  std::list<HttpClient> notReading;
  bystander.expectIsServed([&] {
    const std::size_t more = notReading.empty() ? fullHouse : 16;
    for (std::size_t i = 0; i < more; ++i) {
      const HttpClient& client = notReading.emplace_back(_page);
      const int fewBytes = 4'096;
      setsockopt(client.descriptor(), SOL_SOCKET, SO_RCVBUF, &fewBytes, sizeof fewBytes);
      for (int times = 0; times < 16; ++times) client.send(i % 4 == 0 ? rows : file);
    }
    EXPECT_TRUE(waitUntil([&] { return get("/healthz").status == 200; }));
    while (notReading.size() > fullHouse) notReading.pop_front();
  });
  expectNoMoreMemoryThan(before + 256 * 1'024);
}

TEST_F(ZordchdWebCrowdTest, TellsAllWhoReadLiveAndNotTheRest) {
  const ZORA_Long handle = addNumbers();
  const Bystander bystander(_server.port());
  constexpr std::size_t room = 192;
  std::list<HttpClient> pages;
  for (std::size_t i = 0; i < room; ++i)
    ASSERT_EQ(pages.emplace_back(_page).watch(liveNumbers).status, 200) << i;
  for (int i = 0; i < 20; ++i) {
    const HttpAnswer answer = HttpClient(_page).watch(liveNumbers);
    EXPECT_EQ(answer.status, 503);
    EXPECT_THAT(answer.error(), HasSubstr("too many"));
  }
  EXPECT_EQ(figure("gauges", "live_clients"), static_cast<std::int64_t>(room));
  expectDone(numbersRow(handle, 7));
  for (const HttpClient& each : pages) {
    const auto news = each.news();
    EXPECT_TRUE(news && news->name == "row" && news->data["values"]["total"] == 7);
  }
  bystander.expectIsServed();
  pages.pop_back();
  EXPECT_TRUE(waitUntil([&] { return HttpClient(_page).watch(liveNumbers).status == 200; }));
}

TEST_F(ZordchdWebCrowdTest, EndsSoonHoweverManyAreThere) {
  addNumbers();
  std::list<HttpClient> pages;
  for (int i = 0; i < 50; ++i) {
    EXPECT_EQ(pages.emplace_back(_page).watch(liveNumbers).status, 200);
    pages.emplace_back(_page).send("GET / HT");
    const HttpClient& notReading = pages.emplace_back(_page);
    for (int times = 0; times < 50; ++times) notReading.send(HttpClient::request("/api/state"));
  }
  const auto start = std::chrono::steady_clock::now();
  _hasEnded = true;
  EXPECT_EQ(_server.stop(SIGTERM), 0) << _server.standardError();
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(8));
  for (const HttpClient& each : pages) EXPECT_TRUE(each.isClosed());
}

}  // namespace
}  // namespace dch::testkit
