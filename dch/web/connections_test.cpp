// Limits of connections, made short.
#include "dch/web/connections.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "dch/testkit/connections_thread.h"
#include "dch/testkit/http_client.h"
#include "tests/support/wait_until.h"

namespace dch::testkit {
namespace {

using std::chrono::milliseconds;

void answerAtOnce(const WebRequest& request, const Connections::Respond& respond) {
  respond({.type = "text/plain", .body = shareText("there is " + request.target)});
}

TEST(Connections, EndAHeaderThatTricklesWhateverItsPace) {
  constexpr int manyBytes = 4'000;  // of those that a header may have
  const ConnectionsThread web({.connection = {.header = milliseconds(300)}}, answerAtOnce);
  for (const int paceMilliseconds : {1, 10, 100}) {
    const HttpClient client(web.port);
    client.send("GET / HTTP/1.1\r\nX: ");
    std::optional<std::string> told;
    for (int bytes = 0; bytes < manyBytes && !told; ++bytes) {
      client.send("x");
      told = client.tryReceive(paceMilliseconds);
    }
    EXPECT_EQ(told, "") << paceMilliseconds;
  }
  EXPECT_EQ(httpGet(web.port, "/").body, "there is /");
}

TEST(Connections, HoldNoLargeAnswerForWhoDoesNotReadIt) {
  constexpr std::size_t manyBytes = std::size_t{8} << 20;  // that no socket keeps
  auto large = shareText(std::string(manyBytes, 'x'));
  const std::weak_ptr<const std::string> held = large;
  const ConnectionsThread web({.connection = {.standstill = milliseconds(300)}},
                              [&](const WebRequest& request, const Connections::Respond& respond) {
                                if (request.target == "/") return answerAtOnce(request, respond);
                                respond({.type = "text/plain", .body = std::move(large)});
                              });
  const HttpClient notReading(web.port);
  const int fewBytes = 4'096;
  setsockopt(notReading.descriptor(), SOL_SOCKET, SO_RCVBUF, &fewBytes, sizeof fewBytes);
  notReading.send(HttpClient::request("/large"));
  EXPECT_TRUE(waitUntil([&] {
    EXPECT_EQ(httpGet(web.port, "/").body, "there is /");
    return held.expired();
  }));
}

TEST(Connections, EndWithoutAnAnswerThatNobodyWillGive) {
  const ConnectionsThread web({}, [](const WebRequest&, const Connections::Respond&) {});
  const HttpClient client(web.port);
  client.send(HttpClient::request("/"));
  EXPECT_EQ(client.tryReceive(), "");
}

}  // namespace
}  // namespace dch::testkit
