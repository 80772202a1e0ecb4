// What the real program makes of those who ask for much and read nothing of it, while others are
// served.
#include <gtest/gtest.h>

#include <iostream>
#include <list>
#include <string>
#include <vector>

#include "dch/testkit/bystander.h"
#include "dch/testkit/web_test.h"
#include "tests/support/wait_until.h"

namespace dch::testkit {
namespace {

class ZordchdWebUnreadTest : public WebTest {
 protected:
  // A new connection, for which the system keeps little.
  const HttpClient& notReading() {
    const HttpClient& client = _notReading.emplace_back(_page);
    const int fewBytes = 4'096;
    setsockopt(client.descriptor(), SOL_SOCKET, SO_RCVBUF, &fewBytes, sizeof fewBytes);
    return client;
  }

  std::list<HttpClient> _notReading;
};

TEST_F(ZordchdWebUnreadTest, DropsAndCountsWhoDoesNotReadWhatIsLive) {
  constexpr char target[] = "/api/live?application=LARGE&group=all";
  constexpr int rowsEachTime = 80;
  const std::string note(4'000, 'x');
  const TcpClient provider(_server.port());
  EXPECT_EQ(statusOf(provider.ask(
                registerMessage("appl:LARGE,LRG;group:all;attr:note,T,4001;", "LARGE", "LRG"))),
            DCH_STATUS_OK);
  const ZORA_Long handle = handleOf(provider.ask(onlineMessage("LARGE", "all", "one")));
  const std::string row = dataMessage(handle, {{"note", 'T', note + std::string(1, '\0')}});
  const HttpClient reading(_page);
  ASSERT_EQ(reading.watch(target).status, 200);
  notReading().send(HttpClient::request(target));
  ASSERT_TRUE(waitUntil([&] { return figure("gauges", "live_clients") == 2; }));
  const long before = residentMemory();
  const Bystander bystander(_server.port());
  bystander.expectIsServed([&] {
    for (int i = 0; i < rowsEachTime; ++i) EXPECT_EQ(statusOf(provider.ask(row)), DCH_STATUS_OK);
    for (int i = 0; i < rowsEachTime; ++i) {
      const auto news = reading.news();
      EXPECT_TRUE(news && news->name == "row");
    }
  });
  EXPECT_TRUE(waitUntil([&] { return figure("counters", "live_clients_dropped") == 1; }));
  EXPECT_EQ(figure("counters", "live_events_lost"), 0);
  expectNoMoreMemoryThan(before + 64 * 1'024);
  _notReading.clear();
  EXPECT_TRUE(waitUntil([&] { return figure("gauges", "live_clients") == 1; }));
}

TEST_F(ZordchdWebUnreadTest, HoldsFewLargeAnswersForThoseWhoDoNotRead) {
  constexpr int sources = 300, attributes = 50;
  const std::string firstLine = "HTTP/1.1 200 OK\r\n";
  const TcpClient provider(_server.port());
  std::string text = "appl:LARGE,LRG;group:all;";
  std::vector<Value> values;
  for (int i = 0; i < attributes; ++i) {
    const std::string name = "attribute" + std::to_string(i);
    text += "attr:" + name + ",N,8;";
    values.push_back({name, 'N', bytesOf(std::int64_t{i})});
  }
  EXPECT_EQ(statusOf(provider.ask(registerMessage(text, "LARGE", "LRG"))), DCH_STATUS_OK);
  for (int i = 0; i < sources; ++i) {
    const ZORA_Long handle =
        handleOf(provider.ask(onlineMessage("LARGE", "all", "source" + std::to_string(i))));
    ASSERT_EQ(statusOf(provider.ask(dataMessage(handle, values))), DCH_STATUS_OK);
  }
  const std::size_t whole = get("/metrics").body.size();
  ASSERT_GT(whole, 1'000'000u);
  std::cout << "answers of " << whole << " bytes\n";
  const long before = residentMemory();
  const Bystander bystander(_server.port());
  int refused = 0;
  bystander.expectIsServed([&] {
    for (int i = 0; i < 8; ++i) {
      const HttpClient& client = notReading();
      client.send(HttpClient::request("/metrics"));
      // The next one gets another answer then, until too much is not read.
      if (client.receive(firstLine.size()) != firstLine) ++refused;
    }
    EXPECT_EQ(get("/healthz").body, "ok\n");
    EXPECT_EQ(get("/api/state").status, 200);
  });
  EXPECT_GT(refused, 0);
  constexpr long mostKibibytes = (64 + 32) * 1'024;
  expectNoMoreMemoryThan(before + mostKibibytes);
  _notReading.clear();
  EXPECT_TRUE(waitUntil([&] { return get("/metrics").body.size() > whole / 2; }));
}

}  // namespace
}  // namespace dch::testkit
