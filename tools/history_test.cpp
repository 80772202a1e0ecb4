// zordc history, with zordchd and with servers that do not keep to the form.
#include <gmock/gmock.h>
#include <signal.h>
#include <sysexits.h>

#include <algorithm>
#include <fstream>
#include <thread>

#include "tests/support/sockets.h"
#include "tools/testkit/tools_fixture.h"

namespace tools {
namespace {

using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::MatchesRegex;
using ::testing::StartsWith;

struct HistoryFiles {
  explicit HistoryFiles(const std::string& token = "") {
    if (!token.empty()) std::ofstream(tokenPath()) << token << '\n';
    std::ofstream(configurationPath())
        << (token.empty() ? "" : "[web]\ntoken_file = '" + tokenPath() + "'\n");
  }
  std::string storePath() const { return folder.path() + "/s.db"; }
  std::string tokenPath() const { return folder.path() + "/token"; }
  std::string configurationPath() const { return folder.path() + "/zordchd.toml"; }
  const TemporaryFolder folder;
};

class History : protected HistoryFiles, public ToolsTest {
 protected:
  explicit History(const std::string& token = "", const std::string& store = "file")
      : HistoryFiles(token),
        ToolsTest({"--config", configurationPath(), "--web", "127.0.0.1:0", "--store",
                   store == "file" ? storePath() : store}) {
    const std::string said = _server.waitForOutput("/\n");  // the line that tells of the page
    const std::size_t begin = said.find("http://");
    _web = said.substr(begin, said.find('\n', begin) - begin);
  }

  ProcessResult history(const Arguments& more, const std::string& appl = "WEATHER",
                        const std::string& group = "sky") const {
    Arguments arguments{"history", appl, group, "--web", _web};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return zordc(arguments);
  }

  void keepRows(const std::string& rows) const { ASSERT_EQ(send(rows).exitStatus, EX_OK); }

  std::string _web;
};

class HistoryWithToken : public History {
 protected:
  HistoryWithToken() : History("a-token-that-nobody-guesses") {}
};

class HistoryInMemory : public History {
 protected:
  HistoryInMemory() : History("", "memory") {}
};

// Times and microseconds, which differ from run to run.
std::string withoutMoments(std::string text) {
  for (std::size_t at = 0; (at = text.find("20", at)) != std::string::npos; ++at) {
    const std::size_t end = text.find('Z', at);
    if (end == at + 26) text.replace(at, 27, "TIME");
  }
  for (std::size_t at = 0; at + 16 <= text.size(); ++at) {
    const auto isDigit = [&](std::size_t i) {
      return i < text.size() && text[i] >= '0' && text[i] <= '9';
    };
    std::size_t digits = 0;
    while (isDigit(at + digits)) ++digits;
    if (digits == 16) text.replace(at, 16, "US");
    at += digits;
  }
  return text;
}

constexpr char threeRows[] =
    "clouds,note,rain,small\n"
    "1,\"a \"\"b\"\", c\",9223372036854775807,-3\n"
    ",,-9223372036854775808,\n"
    "8,x,5,7\n";

TEST_F(History, PrintsKeptRowsInEveryFormat) {
  keepRows(threeRows);
  const ProcessResult csv = history({"-F", "csv"});
  EXPECT_EQ(csv.exitStatus, EX_OK);
  EXPECT_EQ(csv.standardError, "");
  EXPECT_EQ(withoutMoments(csv.standardOutput),
            "time,time_us,source,handle,code,clouds,note,rain,small\n"
            "TIME,US,roof,1,0,1,\"a \"\"b\"\", c\",9223372036854775807,-3\n"
            "TIME,US,roof,1,0,,,-9223372036854775808,\n"
            "TIME,US,roof,1,0,8,x,5,7\n");
  const std::string fixed = R"({"time":"TIME","time_us":US,"source":"roof","handle":1,"code":0,)";
  EXPECT_EQ(withoutMoments(history({"-F", "jsonl", "-s", "roof"}).standardOutput),
            fixed + R"("clouds":1,"note":"a \"b\", c","rain":9223372036854775807,"small":-3})" +
                "\n" + fixed +
                R"("clouds":null,"note":null,"rain":-9223372036854775808,"small":null})" + "\n" +
                fixed + R"("clouds":8,"note":"x","rain":5,"small":7})" + "\n");
  EXPECT_THAT(withoutMoments(history({}).standardOutput),
              MatchesRegex("TIME  +SOURCE +clouds  note +rain +small\n"
                           "TIME  roof +1  a \"b\", c  9223372036854775807 +-3\n"
                           "TIME  +SOURCE +clouds  note +rain +small\n"
                           "TIME  roof +-9223372036854775808\n"
                           "TIME  roof +8  x +5 +7\n"));
}

TEST_F(History, TakesARangeAndASource) {
  keepRows("clouds\n1\n2\n");
  EXPECT_THAT(history({"--since", "-24h", "--until", "-1h"}).standardError,
              "zordc: no row was kept in that time\n");
  const ProcessResult all =
      history({"--since", "-1h", "--until", "2099-01-01T00:00:00Z", "-F", "csv"});
  EXPECT_EQ(3, std::count(all.standardOutput.begin(), all.standardOutput.end(), '\n'));
  const ProcessResult none = history({"--since", "2099-01-01T00:00:00Z", "-F", "csv"});
  EXPECT_EQ(none.exitStatus, EX_OK);
  EXPECT_EQ(none.standardOutput, "time,time_us,source,handle,code,clouds,note,rain,small\n");
}

TEST_F(History, SaysWhatTheServerSays) {
  keepRows("clouds\n1\n");
  ProcessResult result = history({"--since", "yesterday"});
  EXPECT_EQ(result.exitStatus, EX_USAGE);
  EXPECT_THAT(result.standardError, StartsWith("zordc: --since has to be a time such as "));
  EXPECT_THAT(result.standardError, EndsWith("not 'yesterday'\n"));
  EXPECT_EQ(history({"--since", "-1h", "--until", "-2h"}).standardError,
            "zordc: --since is later than --until\n");
  result = history({"-s", "a&b=c +d%"});
  EXPECT_EQ(result.exitStatus, EX_NOINPUT);
  EXPECT_EQ(result.standardError, "zordc: group 'sky' has no source 'a&b=c +d%'\n");
  result = history({}, "NONE");
  EXPECT_EQ(result.exitStatus, EX_NOINPUT);
  EXPECT_EQ(result.standardError, "zordc: no rows are kept of an application 'NONE'\n");
  EXPECT_EQ(history({}, "WEATHER", "sea").exitStatus, EX_NOINPUT);
  EXPECT_EQ(result.standardOutput, "");
}

TEST_F(History, EndsQuietlyWhenNobodyReads) {
  std::string rows = "clouds\n";
  for (int i = 0; i < 2000; ++i) rows += "1\n";
  keepRows(rows);
  const std::string command = std::string(ZORDC_PATH) + " history WEATHER sky --web " + _web;
  for (const char* format : {"table", "csv", "jsonl"}) {
    const ProcessResult result = runProgram(
        "/bin/bash", {"-c", "set -o pipefail; " + command + " -F " + format + " | head -n 3"},
        environment());
    EXPECT_EQ(result.exitStatus, EX_OK) << format;
    EXPECT_EQ(3, std::count(result.standardOutput.begin(), result.standardOutput.end(), '\n'));
    EXPECT_EQ(result.standardError, "");
    const ProcessResult full =
        runProgram("/bin/bash", {"-c", command + " -F " + format + " >/dev/full"}, environment());
    EXPECT_EQ(full.exitStatus, EX_IOERR);
    EXPECT_EQ(full.standardError, "zordc: cannot write the output: No space left on device\n");
  }
}

TEST_F(HistoryInMemory, SaysThatNothingIsKept) {
  const ProcessResult result = history({});
  EXPECT_EQ(result.exitStatus, EX_UNAVAILABLE);
  EXPECT_THAT(result.standardError, MatchesRegex("zordc: .*memory.*\n"));
}

TEST_F(HistoryWithToken, ShowsItFromAFile) {
  keepRows("clouds\n1\n");
  ProcessResult result = history({});
  EXPECT_EQ(result.exitStatus, EX_NOPERM);
  EXPECT_EQ(result.standardError,
            "zordc: a token is needed: Authorization: Bearer TOKEN (--token-file FILE)\n");
  result = history({"--token-file", tokenPath(), "-F", "csv"});
  EXPECT_EQ(result.exitStatus, EX_OK);
  EXPECT_THAT(result.standardOutput, HasSubstr(",roof,"));
  const TemporaryFile other("another\n");
  result = history({"--token-file", other.path()});
  EXPECT_EQ(result.exitStatus, EX_NOPERM);
  EXPECT_THAT(result.standardError,
              EndsWith("; that in " + other.path() + " is not the right one\n"));
}

// ---- Servers that do not keep to the form ----

// Takes one connection, reads the request and answers these bytes, then ends the connection.
class ScriptedWeb {
 public:
  explicit ScriptedWeb(std::string answer)
      : _answer(std::move(answer)), _thread([this] { serve(); }) {}
  ~ScriptedWeb() { finish(); }

  ProcessResult ask(const Arguments& more = {}) const {
    Arguments arguments{"history", "A b", "g", "--web", address()};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return Process(ZORDC_PATH, arguments, {{"LC_ALL", "C.UTF-8"}}).finish();
  }
  std::string address() const {
    return "http://127.0.0.1:" + std::to_string(_listener.port()) + "/below/";
  }
  std::string request() {
    finish();
    return _request;
  }

 private:
  void finish() {
    if (_thread.joinable()) _thread.join();
  }
  void serve() {
    const StreamSocket peer(_listener);
    while (_request.find("\r\n\r\n") == std::string::npos) {
      const auto more = peer.tryReceive();
      if (!more || more->empty()) return;
      _request += *more;
    }
    peer.send(_answer);
  }

  const StreamListener _listener;
  const std::string _answer;
  std::string _request;
  std::thread _thread;
};

std::string chunked(const std::string& type, const std::string& content, bool isWhole) {
  char size[16];
  std::snprintf(size, sizeof size, "%zx", content.size());
  return "HTTP/1.1 200 OK\r\nContent-Type: " + type + "\r\nTransfer-Encoding: chunked\r\n\r\n" +
         size + "\r\n" + content + "\r\n" + (isWhole ? "0\r\n\r\n" : "");
}

constexpr char beginOfRows[] =
    R"({"columns":["time","time_us","source","handle","code","n"],"rows":[["T",1,"s",1,0,5],["T",2)";

TEST(HistoryOfABrokenServer, AnAnswerThatIsCutShortIsAnError) {
  ScriptedWeb json(chunked("application/json", beginOfRows, false));
  ProcessResult result = json.ask({"-F", "jsonl"});
  EXPECT_EQ(result.exitStatus, EX_PROTOCOL);
  EXPECT_EQ(result.standardOutput,
            R"({"time":"T","time_us":1,"source":"s","handle":1,"code":0,"n":5})"
            "\n");
  EXPECT_THAT(result.standardError, StartsWith("zordc: the answer was cut short after 1 row: "));
  ScriptedWeb csv(chunked("text/csv", "time,n\nT,1\nT,23", false));
  result = csv.ask({"-F", "csv"});
  EXPECT_EQ(result.exitStatus, EX_PROTOCOL);
  EXPECT_EQ(result.standardOutput, "time,n\nT,1\n");
  EXPECT_THAT(result.standardError, StartsWith("zordc: the answer was cut short after 1 row: "));
}

TEST(HistoryOfABrokenServer, AnAnswerOfAnotherFormIsAnError) {
  ScriptedWeb json(chunked("application/json", beginOfRows, true));
  ProcessResult result = json.ask({"-F", "jsonl"});
  EXPECT_EQ(result.exitStatus, EX_PROTOCOL);
  EXPECT_THAT(result.standardOutput, HasSubstr("\"n\":5}\n"));
  EXPECT_THAT(result.standardError,
              StartsWith("zordc: the answer is not of the right form after 1 row: "));
  ScriptedWeb csv(chunked("text/csv", "time,n\nT,1\nT,23", true));
  result = csv.ask({"-F", "csv"});
  EXPECT_EQ(result.exitStatus, EX_PROTOCOL);
  EXPECT_EQ(result.standardOutput, "time,n\nT,1\n");
  ScriptedWeb page(chunked("text/html", "<html>", true));
  result = page.ask();
  EXPECT_EQ(result.exitStatus, EX_PROTOCOL);
  EXPECT_EQ(result.standardError,
            "zordc: " + page.address() + " answered with 'text/html', not rows\n");
  ScriptedWeb noHttp("220 mail\r\n");
  result = noHttp.ask();
  EXPECT_EQ(result.exitStatus, EX_UNAVAILABLE);
  EXPECT_THAT(result.standardError,
              StartsWith("zordc: cannot get an answer from " + noHttp.address() + ": "));
}

TEST(HistoryOfABrokenServer, ARefusalWithoutASentenceIsToldByItsNumber) {
  const auto refusal = [](const std::string& answer) {
    ScriptedWeb web("HTTP/1.1 " + answer);
    const ProcessResult result = web.ask();
    EXPECT_EQ(result.standardOutput, "");
    const std::size_t address = result.standardError.find(web.address());
    return std::to_string(result.exitStatus) + ' ' +
           (address == std::string::npos
                ? result.standardError
                : std::string(result.standardError).replace(address, web.address().size(), "WEB"));
  };
  EXPECT_EQ(refusal("500 X\r\nContent-Length: 4\r\n\r\noops"),
            "69 zordc: WEB answered with HTTP status 500\n");
  EXPECT_EQ(refusal("302 X\r\nLocation: http://127.0.0.1:1/\r\nContent-Length: 0\r\n\r\n"),
            "69 zordc: WEB answered with HTTP status 302\n");
  EXPECT_EQ(refusal("503 X\r\nContent-Length: 20\r\n\r\n{\"error\":\"full \\u001b\"}"),
            "75 zordc: WEB answered with HTTP status 503\n");
  EXPECT_EQ(refusal("503 X\r\nContent-Length: 23\r\n\r\n{\"error\":\"full \\u001b\"}"),
            "75 zordc: full \\x1b\n");
  EXPECT_EQ(refusal("403 X\r\nContent-Length: 50\r\n\r\n{\"error\":\"cut"),
            "77 zordc: WEB answered with HTTP status 403\n");
}

TEST(HistoryOfABrokenServer, TheQuestionHasWhatWasAskedAndTheTokenIsForThatServerAlone) {
  const TemporaryFile token("secret\n");
  ScriptedWeb web("HTTP/1.1 302 X\r\nLocation: http://127.0.0.1:1/\r\nContent-Length: 0\r\n\r\n");
  web.ask({"-s", "s+&", "--since", "-90s", "--token-file", token.path()});
  EXPECT_THAT(web.request(),
              StartsWith("GET /below/api/rows?application=A+b&group=g&source=s%2b%26&since=-90s&"
                         "format=json HTTP/1.1\r\n"));
  EXPECT_THAT(web.request(), HasSubstr("\r\nAuthorization: Bearer secret\r\n"));
}

TEST_F(History, TakesAnAddressWithoutItsSchemeToo) {
  keepRows("clouds\n1\n");
  const std::string host = _web.substr(std::string("http://").size());
  for (const std::string& address : {host, "HTTP://" + host}) {
    _web = address;
    EXPECT_THAT(history({"-F", "csv"}).standardOutput, HasSubstr(",roof,")) << address;
  }
}

TEST(HistoryWithoutServer, EndsWithTheReason) {
  const auto refusal = [](const Arguments& more) {
    Arguments arguments{"history", "A", "g"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    const ProcessResult result = runProgram(ZORDC_PATH, arguments, {});
    EXPECT_EQ(result.standardOutput, "");
    return std::to_string(result.exitStatus) + ' ' + result.standardError;
  };
  EXPECT_EQ(refusal({"--web", "http://127.0.0.1:1/"}),
            "69 zordc: cannot get an answer from http://127.0.0.1:1/: Connection refused (--web "
            "URL asks another page)\n");
  EXPECT_EQ(refusal({"--web", "ftp://h"}),
            "64 zordc: --web: 'ftp://h' is no address of a server: it has to begin with http:// or "
            "https://\n");
  EXPECT_EQ(refusal({"--web", "h://1"}),
            "64 zordc: --web: 'h://1' is no address of a server: it has to begin with http:// or "
            "https://\n");
  EXPECT_THAT(refusal({"--web", "a b"}),
              StartsWith("64 zordc: --web: 'a b' is no address of a server: "));
  EXPECT_EQ(refusal({"--web", "127.0.0.1:1"}),
            "69 zordc: cannot get an answer from 127.0.0.1:1: Connection refused (--web URL asks "
            "another page)\n");
  EXPECT_EQ(refusal({"--web", "http://h/?a"}),
            "64 zordc: --web: 'http://h/?a' is no address of a server: it has to end before ? and "
            "#\n");
  const TemporaryFile empty("\n");
  EXPECT_EQ(refusal({"--token-file", empty.path()}),
            "65 zordc: " + empty.path() + ": its first line is no token\n");
  EXPECT_EQ(refusal({"--token-file", "/nowhere"}),
            "66 zordc: cannot open /nowhere: No such file or directory\n");
}

// A server that answers when it is told to.
class SlowHistory : public ::testing::Test {
 protected:
  std::unique_ptr<Process> ask(const Arguments& more, Process::Output output) {
    Arguments arguments{"history", "A", "g", "--web",
                        "http://127.0.0.1:" + std::to_string(_listener.port())};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return std::make_unique<Process>(ZORDC_PATH, arguments, Environment{}, output);
  }
  const StreamListener _listener;
};

TEST_F(SlowHistory, RowsAreShownAsTheyComeAndCountedOnATerminal) {
  const auto asking = ask({"-F", "csv"}, Process::Output::errorOnTerminal);
  const StreamSocket peer(_listener);
  const std::string answer = chunked("text/csv", "time,n\nT,1\nT,", false);
  peer.send(answer);
  asking->waitForOutput("T,1\n");
  asking->waitForError("\r\x1b[Kzordc: 1 row");
  peer.send("2\r\n2\n\r\n0\r\n\r\n");
  const ProcessResult result = asking->finish();
  EXPECT_EQ(result.exitStatus, EX_OK);
  EXPECT_EQ(result.standardOutput, "time,n\nT,1\nT,2\n");
  EXPECT_THAT(result.standardError, EndsWith("\r\x1b[K"));
}

TEST_F(SlowHistory, NothingIsCountedWithoutATerminalAndASignalEndsIt) {
  for (const int signal : {SIGINT, SIGTERM}) {
    const auto asking = ask({"-F", "csv"}, Process::Output::captured);
    const StreamSocket peer(_listener);
    peer.send(chunked("text/csv", "time,n\nT,1\n", false));
    asking->waitForOutput("T,1\n");
    asking->signal(signal);
    const ProcessResult result = asking->finish();
    EXPECT_EQ(result.exitStatus, -signal);
    EXPECT_EQ(result.standardError, "");
  }
}

}  // namespace
}  // namespace tools
