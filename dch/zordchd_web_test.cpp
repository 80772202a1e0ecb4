// What the real program answers to browsers and to programs that ask as they do.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <set>
#include <string>

#include "dch/testkit/web_test.h"
#include "tests/support/wait_until.h"

namespace dch::testkit {
namespace {

using nlohmann::json;
using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

constexpr std::int64_t mostNumber = 9'223'372'036'854'775'807;

class ZordchdWebTest : public WebTest {};

class ZordchdWebMemoryTest : public WebTest {
 protected:
  ZordchdWebMemoryTest() : WebTest({}, false) {}
};

const char* const everyPath[] = {
    "/",        "/api/applications", "/api/rows", "/api/live",   "/api/state",
    "/metrics", "/healthz",          "/none",     "/api/rows?x", "/api/%"};

TEST_F(ZordchdWebTest, SaysInItsThirdLineWhereThePageIs) {
  const std::string output = _server.standardOutput();
  EXPECT_THAT(output,
              EndsWith("\nzordchd: page on http://127.0.0.1:" + std::to_string(_page) + "/\n"));
  EXPECT_EQ(std::count(output.begin(), output.end(), '\n'), 3);
}

TEST_F(ZordchdWebTest, HasNoPageUnlessOneIsWanted) {
  ServerProcess server;
  EXPECT_THAT(server.standardOutput(), Not(HasSubstr("page on")));
  EXPECT_EQ(server.stop(SIGTERM), 0);
}

TEST_F(ZordchdWebTest, ShowsThePage) {
  const HttpAnswer page = get("/");
  EXPECT_EQ(page.status, 200);
  EXPECT_EQ(page.field("content-type"), "text/html; charset=utf-8");
  EXPECT_THAT(page.body, HasSubstr("<title>"));
  EXPECT_EQ(get("/?application=A&group=B").body, page.body);  // the page's own
}

TEST_F(ZordchdWebTest, ProtectsWhateverItAnswers) {
  for (const char* path : everyPath) {
    const HttpAnswer answer = get(path);
    EXPECT_NE(answer.status, 0) << path;
    const std::string policy = answer.field("content-security-policy");
    EXPECT_THAT(policy, AllOf(HasSubstr("default-src 'none'"), HasSubstr("frame-ancestors 'none'"),
                              Not(HasSubstr("unsafe")), Not(HasSubstr("http"))))
        << path;
    EXPECT_EQ(answer.field("x-content-type-options"), "nosniff") << path;
    EXPECT_EQ(answer.field("referrer-policy"), "no-referrer") << path;
    EXPECT_EQ(answer.field("cross-origin-resource-policy"), "same-origin") << path;
    EXPECT_EQ(answer.field("cache-control"), "no-store") << path;
  }
}

TEST_F(ZordchdWebTest, AnswersHeadAsGetWithoutTheBody) {
  expectDone(numbersRow(addNumbers(), 1));
  std::vector<std::string> paths(std::begin(everyPath), std::end(everyPath));
  paths.insert(paths.end(), {"/api/rows?application=NUMBERS&group=all", "/api/live?status"});
  for (const std::string& path : paths) {
    const HttpAnswer head = HttpClient(_page).ask("HEAD", path);
    const HttpAnswer whole = HttpClient(_page).watch(path);
    EXPECT_EQ(head.status, whole.status) << path;
    EXPECT_EQ(head.body, "") << path;
    std::set<std::string> names, wholeNames;
    for (const auto& [name, value] : head.fields) names.insert(name);
    for (const auto& [name, value] : whole.fields) wholeNames.insert(name);
    EXPECT_EQ(names, wholeNames) << path;
    EXPECT_EQ(head.field("content-type"), whole.field("content-type")) << path;
  }
}

TEST_F(ZordchdWebTest, CanOnlyBeRead) {
  for (const char* method : {"POST", "PUT", "DELETE", "OPTIONS", "PATCH", "TRACE"})
    for (const char* path : everyPath) {
      const HttpAnswer answer = HttpClient(_page).ask(method, path);
      EXPECT_EQ(answer.status, 405) << method << ' ' << path;
      EXPECT_EQ(answer.field("allow"), "GET, HEAD");
      EXPECT_THAT(answer.error(), HasSubstr("can only be read"));
    }
}

TEST_F(ZordchdWebTest, SaysWhatIsWrongWithAQuestion) {
  addNumbers();
  const std::string rows = "/api/rows?application=NUMBERS&group=all", live = "/api/live?group=all";
  for (const auto& [target, sentence] : std::initializer_list<std::pair<std::string, const char*>>{
           {"/api/applications?a=1", "unknown parameter 'a'"},
           {"/api/state?a", "unknown parameter 'a'"},
           {"/metrics?name[]=x", "unknown parameter 'name[]'"},
           {"/healthz?a=b", "unknown parameter"},
           {"/api/rows", "parameter 'application' is missing"},
           {"/api/rows?application=NUMBERS", "parameter 'group' is missing"},
           {rows + "&group=all", "parameter 'group' is there twice"},
           {rows + "&since=yesterday", "'since' has to be a time"},
           {rows + "&until=-7w", "'until' has to be a time"},
           {rows + "&since=200&until=100", "'since' is later than 'until'"},
           {rows + "&limit=0", "'limit' has to be a whole number"},
           {rows + "&limit=all", "'limit' has to be a whole number"},
           {rows + "&limit=-1", "'limit' has to be a whole number"},
           {rows + "&points=0", "'points' has to be a whole number"},
           {rows + "&points=99999999999999999999", "'points' has to be a whole number"},
           {rows + "&points=5&limit=5", "'limit' and 'points' exclude each other"},
           {rows + "&format=xml", "'format' has to be json or csv"},
           {rows + "&format=", "'format' has to be json or csv"},
           {rows + "&source=%zz", "two hexadecimal digits"},
           {"/api/live", "parameter 'application' is missing"},
           {live, "parameter 'application' is missing"},
           {"/api/live?status=1", "'status' takes no value"}}) {
    const HttpAnswer answer = get(target);
    EXPECT_EQ(answer.status, 400) << target;
    EXPECT_EQ(answer.field("content-type"), "application/json");
    EXPECT_THAT(answer.error(), HasSubstr(sentence)) << target;
  }
}

TEST_F(ZordchdWebTest, SaysWhatThereIsNot) {
  addNumbers();
  for (const auto& [target, sentence] : std::initializer_list<std::pair<std::string, const char*>>{
           {"/none", "'/none'"},
           {"/api", "'/api'"},
           {"/api/", "'/api/'"},
           {"/metrics/", "'/metrics/'"},
           {"/api/rows?application=NONE&group=all", "application 'NONE'"},
           {"/api/rows?application=NUMBERS&group=none", "group 'none'"},
           {"/api/rows?application=NUMBERS&group=all&source=none", "source 'none'"},
           {"/api/rows?application=numbers&group=all", "application 'numbers'"},
           {"/api/live?application=NONE&group=all", "application 'NONE'"},
           {"/api/live?application=NUMBERS&group=none", "group 'none'"},
           {"/api/live?application=&group=", "application ''"},
           {"/api/live?application=NUMBERS&group=", "group ''"},
           {"/api/live?application=NONE&group=none&status", "application 'NONE'"}}) {
    const HttpAnswer answer = HttpClient(_page).watch(target);
    EXPECT_EQ(answer.status, 404) << target;
    EXPECT_THAT(answer.error(), HasSubstr(sentence)) << target;
  }
}

TEST_F(ZordchdWebTest, TellsWhatIsRegisteredAndTheNewestValues) {
  EXPECT_EQ(read("/api/applications"), json::parse(R"({"applications": []})"));
  const ZORA_Long handle = addNumbers();
  json told = read("/api/applications").at("applications");
  ASSERT_EQ(told.size(), 1u);
  json expected = json::parse(R"({"name": "NUMBERS", "key": "NUM", "type": "SOCK",
    "help": "all kinds", "groups": [{"name": "all", "attributes": [
      {"name": "total", "letter": "N", "size": 8, "help": "all of it"},
      {"name": "processes", "letter": "N", "size": 4, "help": ""},
      {"name": "note", "letter": "T", "size": 200, "help": ""},
      {"name": "raw", "letter": "N", "size": 3, "help": ""}],
    "sources": [{"name": "one", "online": true, "last_row": null, "values": {}}]}]})");
  json& source = expected["groups"][0]["sources"][0];
  source["handle"] = handle;
  EXPECT_EQ(told[0], expected);
  // A row that is acknowledged is told at once.
  for (const std::int64_t total : {mostNumber, -mostNumber - 1, std::int64_t{0}}) {
    expectDone(numbersRow(handle, total));
    told = read("/api/applications").at("applications");
    EXPECT_THAT(told[0]["groups"][0]["sources"][0].at("last_row").get<std::string>(),
                AllOf(StartsWith("20"), EndsWith("Z")));
    source["last_row"] = told[0]["groups"][0]["sources"][0]["last_row"];
    source["values"] = {{"total", total}, {"note", "n"}, {"raw", "0x01abff"}};
    EXPECT_EQ(told[0], expected);
  }
  expectDone(offlineMessage(handle));
  source["online"] = false;
  EXPECT_EQ(read("/api/applications").at("applications")[0], expected);
}

TEST_F(ZordchdWebTest, TellsEachRowLiveAsItIsAccepted) {
  const ZORA_Long handle = addNumbers(), other = addNumbers("two");
  const HttpClient client(_page);
  const HttpAnswer answer = client.watch("/api/live?application=NUMBERS&group=all");
  ASSERT_EQ(answer.status, 200);
  EXPECT_EQ(answer.field("content-type"), "text/event-stream");
  expectDone(numbersRow(handle, mostNumber));
  expectDone(numbersRow(other, -mostNumber - 1, "<b>&\"\n"));
  for (const auto& [source, number, total, note] :
       {std::tuple{"one", handle, mostNumber, "n"},
        std::tuple{"two", other, -mostNumber - 1, "<b>&\"\n"}}) {
    const auto news = client.news();
    ASSERT_TRUE(news);
    EXPECT_EQ(news->name, "row");
    EXPECT_THAT(news->data.value("time", ""), EndsWith("Z"));
    json expected = {{"handle", number}, {"source", source}};
    expected["time"] = news->data.value("time", "");
    expected["values"] = {{"total", total}, {"note", note}, {"raw", "0x01abff"}};
    EXPECT_EQ(news->data, expected);
  }
}

TEST_F(ZordchdWebTest, TellsEachChangeOfStatusLive) {
  const HttpClient client(_page), both(_page);
  const auto handle = addNumbers();
  ASSERT_EQ(client.watch("/api/live?status").status, 200);
  ASSERT_EQ(both.watch("/api/live?application=NUMBERS&group=all&status").status, 200);
  expectDone(numbersRow(handle, 1));
  expectDone(offlineMessage(handle));
  expectDone(unregisterMessage("NUMBERS"));
  addNumbers();
  std::vector<std::string> told;
  for (int i = 0; i < 4; ++i) {
    const auto news = client.news();
    ASSERT_TRUE(news);
    EXPECT_EQ(news->name, "status");
    EXPECT_EQ(news->data.size(), 5u);
    EXPECT_THAT(news->data.value("time", ""), EndsWith("Z"));
    told.push_back(news->data.value("change", "") + ' ' + news->data.value("application", "") +
                   ' ' + news->data.value("group", "") + ' ' + news->data.value("source", ""));
  }
  EXPECT_THAT(told, ElementsAre("offline NUMBERS all one", "unregistered NUMBERS  ",
                                "registered NUMBERS  ", "online NUMBERS all one"));
  std::vector<std::string> inTheirOrder;
  for (int i = 0; i < 5; ++i) inTheirOrder.push_back(both.news().value_or(LiveNews{}).name);
  EXPECT_THAT(inTheirOrder, ElementsAre("row", "status", "status", "status", "status"));
}

TEST_F(ZordchdWebTest, ShowsTheNewestNumbersOfWhatIsOnLine) {
  const ZORA_Long handle = addNumbers("a\\b");
  expectDone(numbersRow(handle, mostNumber));
  const std::string labels = R"({application="NUMBERS",group="all",source="a\\b")";
  for (const auto& [accept, type, isOpen] :
       {std::tuple{"Accept: application/openmetrics-text", "application/openmetrics-text", true},
        std::tuple{"Accept: text/plain", "text/plain", false}}) {
    const HttpAnswer answer = get("/metrics", {accept});
    EXPECT_EQ(answer.status, 200);
    EXPECT_THAT(answer.field("content-type"), StartsWith(type));
    EXPECT_EQ(answer.body.ends_with("# EOF\n"), isOpen);
    EXPECT_THAT(answer.body, AllOf(HasSubstr("\nzord_value" + labels + ",attribute=\"total\"} " +
                                             std::to_string(mostNumber) + '\n'),
                                   HasSubstr("\nzord_row_time_seconds" + labels + "} "),
                                   HasSubstr("\nzordchd_rows_kept_total 1\n"),
                                   HasSubstr("\nzordchd_sources_online 1\n"),
                                   Not(HasSubstr("\"note\"")), Not(HasSubstr("\"raw\""))));
  }
  expectDone(offlineMessage(handle));
  EXPECT_THAT(get("/metrics").body,
              AllOf(Not(HasSubstr("\nzord_value{")), Not(HasSubstr("\nzord_row_time_seconds{")),
                    HasSubstr("\nzordchd_sources_online 0\n")));
}

TEST_F(ZordchdWebTest, ShowsTheNewestNumberOfEachAttribute) {
  const auto handle = addNumbers();
  const auto send = [&](const char* name, auto value) {
    expectDone(dataMessage(handle, {{name, 'N', bytesOf(value)}}));
  };
  const auto has = [&](const std::string& sample) {
    return get("/metrics").body.find(",attribute=\"" + sample + "\n") != std::string::npos;
  };
  send("total", std::int64_t{1});
  send("total", std::int64_t{2});
  send("processes", std::int32_t{3});
  EXPECT_TRUE(has("total\"} 2"));
  EXPECT_TRUE(has("processes\"} 3"));
  expectDone(offlineMessage(handle));
  addNumbers();
  EXPECT_FALSE(has("total\"} 2")) << "since when it is not known";
}

TEST_F(ZordchdWebTest, ShowsWhatItCounts) {
  expectDone(numbersRow(addNumbers(), 1));
  EXPECT_EQ(figure("counters", "rows_kept"), 1);
  EXPECT_EQ(figure("gauges", "sources_online"), 1);
  const json state = read("/api/state");
  EXPECT_GE(state.at("counters").value("web_requests", 0), 3);
  EXPECT_EQ(state.value("state", ""), _folder.path() + "/state.db");
  for (const char* kind : {"counters", "gauges"})
    for (const auto& [name, value] : state.at(kind).items())
      EXPECT_NE(state.at("help").value(name, ""), "") << name;
  EXPECT_THAT(get("/metrics").body, HasSubstr("zordchd_requests_total{request=\""));
}

TEST_F(ZordchdWebTest, SaysThatAllIsWell) {
  const HttpAnswer answer = get("/healthz");
  EXPECT_EQ(answer.status, 200);
  EXPECT_EQ(answer.body, "ok\n");
}

TEST_F(ZordchdWebTest, ShowsWhatLooksLikeMarkupAsItIs) {
  const std::string bad = "<img src=x onerror=alert(1)>&amp;</script>";
  const ZORA_Long handle = addNumbers("s<script>&");
  expectDone(numbersRow(handle, 1, bad));
  const std::string target = "/api/rows?application=NUMBERS&group=all&source=s%3Cscript%3E%26";
  EXPECT_EQ(read(target).at("rows")[0][2], "s<script>&");
  EXPECT_THAT(read(target).at("rows")[0].dump(), HasSubstr(bad));
  const HttpAnswer none = get("/api/rows?application=%3Cscript%3E%0A%00&group=x");
  EXPECT_EQ(none.status, 404);
  EXPECT_EQ(none.field("content-type"), "application/json");  // and is not looked into for another
  EXPECT_EQ(read("/api/applications").at("applications")[0]["groups"][0]["sources"][0]["name"],
            "s<script>&");
}

TEST(ZordchdWebActionsTest, GetNoConnectionOfABrowser) {
  const TemporaryFile script{"#!/bin/sh\nreadlink /proc/$$/fd/* >\"$0.out\"\ntrue\n", "look"};
  std::filesystem::permissions(script.path(), std::filesystem::perms::owner_all);
  const TemporaryFile actions("look " + script.path() + '\n');
  ServerProcess server({"--web", "127.0.0.1:0", "--actions", actions.path()});
  const HttpClient idle(server.pagePort()), live(server.pagePort());
  EXPECT_EQ(idle.get("/healthz").status, 200);
  EXPECT_EQ(live.watch("/api/live?status").status, 200);
  const UdpClient client(server.port());
  client.send(actionMessage("look", 1));
  EXPECT_EQ(statusOf(client.ask(actionResultsMessage(1))), 0);
  const std::string open = contentOf(script.path() + ".out");
  EXPECT_THAT(open, AllOf(HasSubstr("/dev/null"), Not(HasSubstr("socket:"))));
  EXPECT_EQ(server.stop(SIGTERM), 0);
}

TEST_F(ZordchdWebMemoryTest, HasWhatIsLiveAndNoHistory) {
  const ZORA_Long handle = addNumbers();
  expectDone(numbersRow(handle, 7));
  const HttpAnswer rows = get("/api/rows?application=NUMBERS&group=all");
  EXPECT_EQ(rows.status, 409);
  EXPECT_THAT(rows.error(), HasSubstr("--store"));
  EXPECT_EQ(get("/api/rows?application=NUMBERS").status, 400);
  EXPECT_THAT(get("/api/applications").body, HasSubstr("\"total\":7"));
  EXPECT_EQ(get("/healthz").status, 200);
  const HttpClient client(_page);
  ASSERT_EQ(client.watch("/api/live?application=NUMBERS&group=all").status, 200);
  expectDone(numbersRow(handle, 8));
  const auto news = client.news();
  EXPECT_TRUE(news && news->data.at("values").value("total", 0) == 8);
}

}  // namespace
}  // namespace dch::testkit
