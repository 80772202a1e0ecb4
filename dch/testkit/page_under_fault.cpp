#include "dch/testkit/page_under_fault.h"

#include <gtest/gtest.h>
#include <signal.h>

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <optional>
#include <string_view>

#include "dch/store/sqlite.h"
#include "dch/testkit/clients.h"
#include "dch/testkit/messages.h"
#include "dch/testkit/web_rows.h"
#include "tests/support/wait_until.h"
#include "zordchcl/status.h"

namespace dch::testkit {

namespace {

// More than fit into one piece of an answer.
constexpr int rowsBefore = 40;
constexpr std::size_t noteBytes = 4'000;
// A fault may cost the answer, which is not waited for as long as usual.
constexpr int shortWaitMilliseconds = 300;

constexpr char liveRows[] = "/api/live?application=FAULTS&group=all";

std::string rowWith(ZORA_Long handle, std::int64_t number) {
  return dataMessage(handle, {{"number", 'N', bytesOf(number)},
                              {"note", 'T', std::string(noteBytes, 'x') + std::string(1, '\0')}});
}

}  // namespace

const std::vector<PageQuestion>& pageQuestions() {
  static const std::vector<PageQuestion> all{
      {"page", "/", "<title>"},
      {"applications", "/api/applications", "\"last_row\":\"2"},
      {"rows", "/api/rows?application=FAULTS&group=all&limit=40", "\"columns\""},
      {"thinned", "/api/rows?application=FAULTS&group=all&points=10", "\"number_max\""},
      {"csv", "/api/rows?application=FAULTS&group=all&limit=3&format=csv", "time,time_us,source"},
      {"live", liveRows, "event: row\n", true},
      {"state", "/api/state", "\"rows_kept\""},
      {"metrics", "/metrics", "\nzord_value{application=\"FAULTS\""},
      {"health", "/healthz", "\r\n\r\nok\n"},
      {"none", "/none", "{\"error\":\"there is nothing at '/none'\"}"}};
  return all;
}

PageUnderFault::PageUnderFault(const Process::Environment& environment, void (*prepare)())
    : _server({"--web", "127.0.0.1:0", "--store", _folder.path() + "/state.db"}, prepare, 0,
              environment),
      _page(_server.pagePort()) {
  const TcpClient client(_server.port());
  EXPECT_EQ(statusOf(client.ask(registerMessage(
                "appl:FAULTS,FLT;group:all;attr:number,N,8;attr:note,T,4001;", "FAULTS", "FLT"))),
            DCH_STATUS_OK);
  _handle = handleOf(client.ask(onlineMessage("FAULTS", "all", "one")));
  while (_lastRow < rowsBefore)
    EXPECT_EQ(statusOf(client.ask(rowWith(_handle, ++_lastRow))), DCH_STATUS_OK);
  for (const PageQuestion& each : pageQuestions()) expectRight(each);
  _descriptors = descriptors();
}

void PageUnderFault::ask(const PageQuestion& question) {
  const std::string row = rowWith(_handle, ++_lastRow);
  const UdpClient provider(_server.port());
  const HttpClient browser(_page);
  browser.send(HttpClient::request(question.target, {"Connection: close"}));
  const auto finishRow = [&] {
    const auto told = provider.receive(shortWaitMilliseconds);
    EXPECT_TRUE((told && statusOf(*told) == DCH_STATUS_OK) || isAcknowledged(row)) << _lastRow;
  };
  std::string answer;
  if (question.isLive) answer = browser.tryReceive(shortWaitMilliseconds).value_or("");
  provider.send(row);
  if (question.isLive) finishRow();
  std::optional<std::string> bytes;
  while (!(question.isLive && answer.find("event: ") != std::string::npos) &&
         (bytes = browser.tryReceive(shortWaitMilliseconds)) && !bytes->empty())
    answer += *bytes;
  if (!question.isLive) finishRow();
  ++(isRight(question, answer) ? _right : answer.empty() && !bytes ? _silent : _other);
}

// Each time over another socket, as late answers are not for it.
bool PageUnderFault::isAcknowledged(const std::string& row) const {
  return waitUntil([&] {
    const UdpClient provider(_server.port());
    provider.send(row);
    const auto told = provider.receive(shortWaitMilliseconds);
    return told && statusOf(*told) == DCH_STATUS_OK;
  });
}

void PageUnderFault::expectRight(const PageQuestion& question) {
  // The file may have failed as well, and is soon found to work again.
  EXPECT_TRUE(std::string_view(question.name) != "health" ||
              waitUntil([&] { return httpGet(_page, question.target).status == 200; }));
  const HttpClient browser(_page);
  if (question.isLive) {
    EXPECT_EQ(browser.watch(question.target).status, 200) << question.target;
    EXPECT_TRUE(isAcknowledged(rowWith(_handle, ++_lastRow)));
    std::optional<LiveNews> news;  // of the rows before as well, and of what was lost of them
    do news = browser.news();
    while (news && !(news->name == "row" && news->data["values"]["number"] == _lastRow));
    EXPECT_TRUE(news) << "no row";
    return;
  }
  browser.send(HttpClient::request(question.target, {"Connection: close"}));
  std::string answer;
  std::optional<std::string> bytes;
  while ((bytes = browser.tryReceive()) && !bytes->empty()) answer += *bytes;
  EXPECT_TRUE(bytes) << question.target << " has not ended";
  EXPECT_TRUE(isRight(question, answer)) << question.target << ": " << answer.substr(0, 2'000);
}

bool PageUnderFault::isRight(const PageQuestion& question, const std::string& answer) const {
  const bool isCut = answer.find("\r\nTransfer-Encoding: chunked\r\n") != std::string::npos &&
                     !answer.ends_with("\r\n0\r\n\r\n");
  return answer.find(question.inAnswer) != std::string::npos && (question.isLive || !isCut);
}

std::size_t PageUnderFault::descriptors() const {
  const std::filesystem::directory_iterator all("/proc/" + std::to_string(processId()) + "/fd");
  return static_cast<std::size_t>(std::distance(begin(all), end(all)));
}

int PageUnderFault::gauge(const char* name) const {
  return httpGet(_page, "/api/state").json().at("gauges").value(name, -1);
}

void PageUnderFault::expectUnharmed() {
  EXPECT_TRUE(waitUntil([&] { return gauge("web_connections") == 1; })) << gauge("web_connections");
  EXPECT_TRUE(waitUntil([&] { return gauge("live_clients") == 0; })) << gauge("live_clients");
  EXPECT_TRUE(waitUntil([&] { return descriptors() <= _descriptors; }))
      << descriptors() << " descriptors, not " << _descriptors;
  for (const PageQuestion& each : pageQuestions()) expectRight(each);
  EXPECT_EQ(_server.stop(SIGTERM), 0) << _server.standardError();
  sqlite::Connection file(_folder.path() + "/state.db", nullptr);
  EXPECT_EQ(sqlite::queryNumber(file, "SELECT count(DISTINCT number) FROM \"FAULTS.all\""),
            _lastRow);
}

std::string PageUnderFault::summary() const {
  return std::to_string(_right) + " answered right, " + std::to_string(_other) + " otherwise, " +
         std::to_string(_silent) + " not at once";
}

}  // namespace dch::testkit
