// What the real program makes of browsers that mean no good: they hold up themselves, while the
// channel's clients are served as before and nothing of theirs is lost.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <iterator>
#include <list>
#include <random>
#include <string>

#include "dch/testkit/bystander.h"
#include "dch/testkit/web_test.h"
#include "tests/support/wait_until.h"

namespace dch::testkit {
namespace {

using ::testing::HasSubstr;

class ZordchdWebHostileTest : public WebTest {
 protected:
  // Whoever asks is answered, and the channel has lost nothing.
  ~ZordchdWebHostileTest() override {
    EXPECT_EQ(get("/healthz").body, "ok\n");
    const nlohmann::json counters = read("/api/state").at("counters");
    EXPECT_EQ(counters.at("rows_received"), counters.at("rows_kept"));
    for (const char* lost : {"changes_not_kept", "answers_dropped", "datagrams_thrown_away",
                             "live_events_lost", "web_accept_failures"})
      EXPECT_EQ(counters.at(lost), 0) << lost;
  }

  // One that is answered with this status, or not at all (0).
  int statusOfBytes(const std::string& bytes) const {
    const HttpClient client(_page);
    client.send(bytes);
    client.finishSending();
    return client.receiveAnswer().status;
  }
};

TEST_F(ZordchdWebHostileTest, RefusesWhatIsNoRequest) {
  const std::string host = "Host: 127.0.0.1\r\n";
  for (const auto& [bytes, status] : std::initializer_list<std::pair<std::string, int>>{
           {"", 0},
           {"\r\n\r\n", 400},
           {"GET / HTTP/1.1\r\n\r\n", 400},
           {"GET / HTTP/1.1\r\n" + host + host + "\r\n", 400},
           {"GET /\r\n", 400},
           {"GET / HTTP/9.9\r\n" + host + "\r\n", 400},
           {"PRI * HTTP/2.0\r\n\r\nSM\r\n\r\n", 400},
           {std::string("\x16\x03\x01\x02\x00\x01\x00\x01\xfc\x03\x03\r\n\r\n", 15), 400},
           {"SSH-2.0-client\r\n", 400},
           {"GET  / HTTP/1.1\r\n" + host + "\r\n", 400},
           {"GET / HTTP/1.1\n" + host + "\r\n", 400},
           {"GET / HTTP/1.1\r\n" + host + "Bad Name: x\r\n\r\n", 400},
           {"GET / HTTP/1.1\r\n" + host + ": x\r\n\r\n", 400},
           {std::string("GET /\0 HTTP/1.1\r\n", 17) + host + "\r\n", 400},
           {std::string("GET / HTTP/1.1\r\nX: \0\r\n", 22) + host + "\r\n", 400},
           {"GET / HTTP/1.1\r\n" + host + "Content-Length: x\r\n\r\n", 400},
           {"GET / HTTP/1.1\r\n" + host + "Content-Length: 1\r\nContent-Length: 2\r\n\r\n", 400},
           {"GET http://evil.example/ HTTP/1.1\r\n" + host + "\r\n", 400},
           {"GET http://127.0.0.1/api/state HTTP/1.1\r\n" + host + "\r\n", 400},
           {"GET evil.example:80 HTTP/1.1\r\n" + host + "\r\n", 400},
           {"GET * HTTP/1.1\r\n" + host + "\r\n", 400},
           {"CONNECT evil.example:443 HTTP/1.1\r\n" + host + "\r\n", 405},
           {"OPTIONS * HTTP/1.1\r\n" + host + "\r\n", 405},
           {"BREW / HTTP/1.1\r\n" + host + "\r\n", 405},
           {"GET /healthz HTTP/1.0\r\n\r\n", 200},
           {"GET /api/state HTTP/1.0\r\nHost: evil.example\r\n\r\n", 403}})
    EXPECT_EQ(statusOfBytes(bytes), status) << bytes;
}

TEST_F(ZordchdWebHostileTest, LeadsNowhereElse) {
  for (const char* path : {"/../etc/passwd",
                           "/..%2f..%2fetc/passwd",
                           "/%2e%2e/etc/passwd",
                           "//etc/passwd",
                           "/./index.html",
                           "/\\..\\etc\\passwd",
                           "/index.html/",
                           "//",
                           "/..",
                           "/%00",
                           "/index.html%00",
                           "/api//state",
                           "/api/../api/state",
                           "/api/state/",
                           "/API/STATE",
                           "/api%2fstate",
                           "/page/",
                           "/index.html;x",
                           "/state.db",
                           "/.git/config",
                           "/metrics%20",
                           "/\xff\xfe"}) {
    const HttpAnswer answer = get(path);
    EXPECT_EQ(answer.status, 404) << path;
    EXPECT_THAT(answer.error(), HasSubstr("there is nothing at")) << path;
  }
}

TEST_F(ZordchdWebHostileTest, RefusesHeadersAndAddressesThatAreBombs) {
  const long before = residentMemory();
  const Bystander bystander(_server.port());
  const std::string many = "&a" + std::string(3'000, 'x'), longName(60'000, 'h');
  HttpClient::Fields fields;
  for (int i = 0; i < 5'000; ++i) fields.push_back("X-" + std::to_string(i) + ": y");
  std::string parameters;
  for (int i = 0; i < 1'500; ++i) parameters += "p" + std::to_string(i) + '&';
  const std::function<void()> bombs[] = {
      [&] { EXPECT_EQ(get("/", {"X-Long: " + longName}).status, 431); },
      [&] { EXPECT_EQ(get("/" + longName).status, 431); },
      [&] { EXPECT_EQ(get("/", fields).status, 431); },
      [&] { EXPECT_EQ(get("/api/rows?" + parameters).status, 400); },
      [&] { EXPECT_EQ(get("/api/rows?" + std::string(8'000, '&')).status, 400); },
      [&] {
        EXPECT_EQ(get("/api/live?application=" + std::string(7'000, 'a') + "&group=b").status, 404);
      },
      [&] { EXPECT_EQ(get("/api/rows?source=" + std::string(7'000, '%')).status, 400); },
      [&] { EXPECT_EQ(get("/healthz", {"Cookie: " + std::string(7'000, ';')}).status, 200); }};
  std::size_t turn = 0;
  bystander.expectIsServed([&] { bombs[turn++ % std::size(bombs)](); });
  EXPECT_GE(turn, std::size(bombs));
  expectNoMoreMemoryThan(before + 32 * 1'024);
}

TEST_F(ZordchdWebHostileTest, ReadsNoBody) {
  const std::string head = "POST / HTTP/1.1\r\nHost: 127.0.0.1\r\n";
  const std::string block(65'536, 'b');
  const long before = residentMemory();
  for (const std::string& rest :
       {"Content-Length: 1000000000000\r\n\r\n" + block, "Content-Length: 5\r\n\r\n" + block,
        std::string("Transfer-Encoding: chunked\r\n\r\nffffffffffffffff\r\n") + block,
        std::string("Transfer-Encoding: chunked\r\n\r\nxyz\r\n") + block,
        std::string("Expect: 100-continue\r\nContent-Length: 10\r\n\r\n")}) {
    const HttpClient client(_page);
    client.send(head + rest);
    const HttpAnswer answer = client.receiveAnswer();
    EXPECT_EQ(answer.status, 405) << rest.substr(0, 60);
    EXPECT_EQ(answer.field("connection"), "close");
    // Nothing of what follows is taken for a request.
    for (int i = 0; i < 40; ++i) client.send(block);
    EXPECT_TRUE(client.isClosed());
  }
  expectNoMoreMemoryThan(before + 16 * 1'024);
}

TEST_F(ZordchdWebHostileTest, AnswersPipelinedRequestsInTheirOrder) {
  const HttpClient client(_page);
  constexpr int count = 100;
  std::string all;
  for (int i = 0; i < count; ++i)
    all += HttpClient::request(i % 3 == 0 ? "/healthz" : "/none" + std::to_string(i));
  client.send(all);
  client.finishSending();
  for (int i = 0; i < count; ++i) {
    const HttpAnswer answer = client.receiveAnswer();
    if (i % 3 == 0)
      EXPECT_EQ(answer.body, "ok\n") << i;
    else
      EXPECT_EQ(answer.error(), "there is nothing at '/none" + std::to_string(i) + '\'') << i;
  }
  EXPECT_TRUE(client.isClosed());
}

TEST_F(ZordchdWebHostileTest, AnswersWhoHasEndedHisSide) {
  expectDone(numbersRow(addNumbers(), 1));
  for (const char* target : {"/", "/api/applications", "/api/state", "/metrics", "/healthz",
                             "/api/rows?application=NUMBERS&group=all"}) {
    const HttpClient client(_page);
    client.send(HttpClient::request(target));
    client.finishSending();
    const HttpAnswer answer = client.receiveAnswer();
    EXPECT_EQ(answer.status, 200) << target;
    EXPECT_TRUE(answer.isWhole) << target;
  }
  const HttpClient live(_page);
  EXPECT_EQ(live.watch("/api/live?application=NUMBERS&group=all").status, 200);
  live.finishSending();
  expectDone(numbersRow(addNumbers(), 2));
  EXPECT_TRUE(live.news());
}

TEST_F(ZordchdWebHostileTest, TakesRequestsThatAreCutAnywhere) {
  const std::string whole = HttpClient::request("/healthz", {"Accept: */*", "Cookie: a=b"});
  for (std::size_t cut = 0; cut < whole.size(); ++cut) {
    HttpClient gone(_page);
    gone.send(whole.substr(0, cut));
    if (cut % 2 == 0) gone.breakOff();
    const HttpClient client(_page);
    client.send(whole.substr(0, cut));
    client.send(whole.substr(cut));
    EXPECT_EQ(client.receiveAnswer().status, 200) << cut;
  }
}

TEST_F(ZordchdWebHostileTest, TakesARequestThatComesByteByByte) {
  const HttpClient client(_page);
  for (const char each : HttpClient::request("/healthz")) client.send({&each, 1});
  EXPECT_EQ(client.receiveAnswer().body, "ok\n");
}

TEST_F(ZordchdWebHostileTest, ServesOnAfterGarbage) {
  std::mt19937 random(20260131);
  const Bystander bystander(_server.port());
  const std::string good = HttpClient::request("/api/rows?application=A&group=B", {"Accept: x"});
  bystander.expectIsServed([&] {
    std::string garbage(1 + random() % 2'000, '\0');
    for (char& byte : garbage) byte = static_cast<char>(random());
    statusOfBytes(garbage);
    std::string mangled = good;
    for (int i = 0; i < 3; ++i) mangled[random() % mangled.size()] = static_cast<char>(random());
    statusOfBytes(mangled);
  });
}

}  // namespace
}  // namespace dch::testkit
