// zordc's questions, its view of provider status, and its requests, with zordchd at the other end.
#include <gmock/gmock.h>
#include <signal.h>
#include <sysexits.h>

#include <chrono>
#include <memory>

#include "tests/support/quickest.h"
#include "tests/support/scripted_dch.h"
#include "tools/testkit/printed_times.h"
#include "tools/testkit/tools_fixture.h"

namespace tools {
namespace {

using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::MatchesRegex;
using ::testing::StartsWith;

// The answer of a DCH that knows this text.
std::string answerOf(const std::string& text) {
  return messageOf([&](DCH_MessageBuilder& message) {
    message.addBytes(DCH_response, text.data(), static_cast<ZORA_Long>(text.size()));
  });
}

constexpr char actionsText[] = "succeed /bin/true\nfail /bin/false\n";

struct ActionsFile {
  const TemporaryFile actions{actionsText};
};

class ConsumerCommands : private ActionsFile, public ToolsTest {
 protected:
  ConsumerCommands() : ToolsTest({"--actions", actions.path()}) {}

  // WEATHER, on line at roof while the object lives, and as long as the server when it is gone.
  class Provider {
   public:
    explicit Provider(ConsumerCommands* test, const Arguments& more = {})
        : _sender(test->startSending(more)) {
      _sender->write("clouds\n1\n");
      test->_server.waitForError("on line: WEATHER sky roof");
    }
    ProcessResult finish() { return _sender->finish(); }

   private:
    const std::unique_ptr<Process> _sender;
  };

  std::unique_ptr<Process> startStatus(const Arguments& more = {}) {
    Arguments arguments{"status"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    auto status = std::make_unique<Process>(ZORDC_PATH, arguments, environment());
    _server.waitForError(" to provider status\n", ++_statusSubscriptions);
    return status;
  }

  ProcessResult act(const std::string& action, const Arguments& more = {}) const {
    Arguments arguments{"act",       action,        "--node",  "hostA",
                        "--subnode", "hostA:HMN00", "--owner", "me"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return zordc(arguments);
  }

 private:
  int _statusSubscriptions = 0;
};

void expectOutput(const ProcessResult& result, const std::string& output) {
  EXPECT_EQ(result.exitStatus, EX_OK);
  EXPECT_EQ(result.standardOutput, output);
  EXPECT_EQ(result.standardError, "");
}

// ---- What the DCH knows ----

TEST_F(ConsumerCommands, AppsListsTheApplicationsInEveryFormat) {
  const Provider provider(this);
  expectOutput(zordc({"apps"}),
               "NAME     KEY  TYPE  GROUPS   ONLINE\n"
               "WEATHER  WTH  SOCK  sky odd       1\n");
  expectOutput(zordc({"apps", "-F", "csv"}),
               "name,key,type,groups,online\n"
               "WEATHER,WTH,SOCK,sky odd,1\n");
  const std::string line =
      R"({"name":"WEATHER","key":"WTH","type":"SOCK","groups":"sky odd","online":1})"
      "\n";
  expectOutput(zordc({"apps", "-F", "jsonl"}), line);
  expectOutput(zordc({"apps", "WEATHER", "--format", "jsonl"}), line);
}

TEST_F(ConsumerCommands, AppsOfAnEmptyDchIsAnEmptyList) {
  const ProcessResult result = zordc({"apps"});
  EXPECT_EQ(result.exitStatus, EX_OK);
  EXPECT_EQ(result.standardOutput, "");
  EXPECT_EQ(result.standardError, "zordc: nothing is registered\n");
}

TEST_F(ConsumerCommands, AttrsListsTheAttributesInEveryFormat) {
  const Provider provider(this);
  expectOutput(zordc({"attrs", "WEATHER"}),
               "GROUP  NAME    LETTER  SIZE  HELP\n"
               "sky    clouds  G          4  eighths\n"
               "sky    note    T         20\n"
               "sky    rain    C          8\n"
               "sky    small   I          2\n"
               "odd    size3   G          3\n");
  const ProcessResult csv = zordc({"attrs", "WEATHER", "-F", "csv"});
  EXPECT_EQ(csv.exitStatus, EX_OK);
  EXPECT_THAT(csv.standardOutput,
              StartsWith("group,name,letter,size,help\nsky,clouds,G,4,eighths\nsky,note,T,20,"));
  const ProcessResult jsonLines = zordc({"attrs", "WEATHER", "-F", "jsonl"});
  EXPECT_EQ(jsonLines.exitStatus, EX_OK);
  EXPECT_THAT(jsonLines.standardOutput,
              StartsWith(R"({"group":"sky","name":"clouds","letter":"G","size":4,"help":"eighths"})"
                         "\n"));
}

TEST_F(ConsumerCommands, HelpPrintsTheTextOfTheApplication) {
  const Provider provider(this);
  expectOutput(zordc({"help", "WEATHER"}), "What the sky does\n");
}

TEST_F(ConsumerCommands, AnUnknownApplicationIsToldApartFromNoAnswer) {
  const auto refusal = [this](const Arguments& arguments) {
    const ProcessResult result = zordc(arguments);
    EXPECT_EQ(result.exitStatus, EX_NOINPUT);
    EXPECT_EQ(result.standardOutput, "");
    return result.standardError;
  };
  EXPECT_EQ(refusal({"apps", "NONE"}), "zordc: no application 'NONE'\n");
  EXPECT_EQ(refusal({"attrs", "NONE"}), "zordc: no application 'NONE'\n");
  EXPECT_EQ(refusal({"help", "NONE"}), "zordc: no help text for 'NONE'\n");
}

TEST(ConsumerCommandsAlone, WithoutADchAQuestionEndsAfterItsWait) {
  const ScriptedDch silent(never());
  for (const Arguments& question : {Arguments{"apps"}, {"attrs", "A"}, {"help", "A"}}) {
    Arguments arguments = question;
    arguments.insert(arguments.end(), {"-W", "1"});
    const auto start = std::chrono::steady_clock::now();
    const ProcessResult result = runProgram(ZORDC_PATH, arguments, environmentFor(silent.port()));
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::seconds(1));
    EXPECT_EQ(result.exitStatus, EX_UNAVAILABLE);
    EXPECT_EQ(result.standardOutput, "");
    EXPECT_THAT(result.standardError, EndsWith("zordc: no answer from the DCH at 127.0.0.1:" +
                                               std::to_string(silent.port()) + " in 1 s\n"));
  }
}

TEST(ConsumerCommandsAlone, AQuestionThatCannotBeSentIsNoEmptyAnswer) {
  constexpr int noPort = 0;  // the system refuses to send there
  for (const Arguments& question : {Arguments{"apps"}, {"attrs", "A"}, {"help", "A"}}) {
    const ProcessResult result = runProgram(ZORDC_PATH, question, environmentFor(noPort));
    EXPECT_EQ(result.exitStatus, EX_UNAVAILABLE);
    EXPECT_EQ(result.standardOutput, "");
    EXPECT_THAT(
        result.standardError,
        EndsWith(
            "zordc: the DCH at 127.0.0.1:0 could not be asked, or did not answer the question\n"));
  }
}

TEST(ConsumerCommandsAlone, AnAnswerThatWasCutIsWarnedAbout) {
  const ScriptedDch dch(always(answerOf("A,AAA,SOCK,g,1\nB,BBB,SOCK,g h,0\n#truncated\n")));
  const ProcessResult result =
      runProgram(ZORDC_PATH, {"apps", "-F", "csv"}, environmentFor(dch.port()));
  EXPECT_EQ(result.exitStatus, EX_OK);
  EXPECT_EQ(result.standardOutput,
            "name,key,type,groups,online\nA,AAA,SOCK,g,1\nB,BBB,SOCK,g h,0\n");
  EXPECT_EQ(result.standardError, "zordc: warning: the DCH cut its answer after 2 lines\n");
}

TEST(ConsumerCommandsAlone, ALineOfAnotherFormIsPrintedAsFarAsItGoes) {
  const ScriptedDch dch(always(answerOf("A\n")));
  expectOutput(runProgram(ZORDC_PATH, {"apps", "-F", "jsonl"}, environmentFor(dch.port())),
               "{\"name\":\"A\",\"key\":\"\",\"type\":\"\",\"groups\":\"\",\"online\":\"\"}\n");
}

// ---- Status ----

TEST_F(ConsumerCommands, StatusShowsTheLifeOfAProvider) {
  const auto status = startStatus({"-C", "4"});
  const auto csv = startStatus({"-C", "4", "-F", "csv"});
  EXPECT_EQ(send("clouds\n1\n").exitStatus, EX_OK);
  const ProcessResult seen = status->finish();
  EXPECT_EQ(seen.exitStatus, EX_OK);
  EXPECT_EQ(seen.standardError, "");
  EXPECT_EQ(withoutTimes(seen.standardOutput),
            "TIME                      CHANGE        APPLICATION           GROUP         SOURCE\n"
            "TIME  registered    WEATHER\n"
            "TIME  online        WEATHER               sky           roof\n"
            "TIME  offline       WEATHER               sky           roof\n"
            "TIME  unregistered  WEATHER\n");
  EXPECT_EQ(withoutTimes(csv->finish().standardOutput),
            "time,change,application,group,source\n"
            "TIME,registered,WEATHER,\"\",\"\"\n"
            "TIME,online,WEATHER,sky,roof\n"
            "TIME,offline,WEATHER,sky,roof\n"
            "TIME,unregistered,WEATHER,\"\",\"\"\n");
}

TEST_F(ConsumerCommands, StatusShowsAChangeWithinASecond) {
  const auto status = startStatus({"-F", "jsonl"});
  int times = 0;
  const auto goOnAndOff = [&] {
    ++times;
    const auto sender = startSending({});
    sender->write("clouds\n1\n");
    _server.waitForError("on line: WEATHER sky roof", times);
    const auto online = [&] {
      status->waitForOutput(
          R"("change":"online","application":"WEATHER","group":"sky","source":"roof"})", times);
    };
    const double secondsToOnline = secondsOf(online);
    sender->closeInput();
    _server.waitForError("off line: handle ", times);
    const auto offline = [&] {
      status->waitForOutput(R"("change":"offline","application":"WEATHER")", times);
    };
    const double secondsToOffline = secondsOf(offline);
    sender->finish();
    return std::max(secondsToOnline, secondsToOffline);
  };
  EXPECT_LT(quickest(1, goOnAndOff), 1);
}

TEST_F(ConsumerCommands, StatusBeginsWithWhatIsOnLineAndEndsAfterItsCount) {
  const Provider provider(this);
  const auto status = startStatus({"-C", "1", "-F", "csv"});
  const ProcessResult seen = status->finish();
  EXPECT_EQ(seen.exitStatus, EX_OK);
  EXPECT_EQ(withoutTimes(seen.standardOutput),
            "time,change,application,group,source\nTIME,online,WEATHER,sky,roof\n");
  _server.waitForError("zordchd: withdrew ");
}

TEST_F(ConsumerCommands, ASignalEndsStatusWithZero) {
  for (const int signal : {SIGINT, SIGTERM}) {
    const auto status = startStatus();
    status->signal(signal);
    const ProcessResult seen = status->finish();
    EXPECT_EQ(seen.exitStatus, EX_OK);
    EXPECT_EQ(seen.standardOutput + seen.standardError, "");
  }
}

// ---- Actions and deferrals ----

TEST_F(ConsumerCommands, ActWithWaitPrintsTheResultAndTellsIt) {
  expectOutput(act("succeed", {"--wait", "--id", "7"}), "action 7\nresult 0\n");
  ProcessResult result = act("fail", {"--wait", "--id", "8"});
  EXPECT_EQ(result.exitStatus, 1);
  EXPECT_EQ(result.standardOutput, "action 8\nresult 1\n");
  result = act("unlisted", {"--wait", "--id", "9"});
  EXPECT_EQ(result.exitStatus, 1);
  EXPECT_EQ(result.standardOutput, "action 9\nresult 106 (unknown action)\n");
}

TEST_F(ConsumerCommands, ActMakesUpAnIdAndDoesNotWaitUnlessTold) {
  const ProcessResult result = act("fail");
  EXPECT_EQ(result.exitStatus, EX_OK);
  EXPECT_THAT(result.standardOutput, MatchesRegex("action [1-9][0-9]*\n"));
  std::string id = result.standardOutput;
  id.pop_back();
  _server.waitForError("zordchd: " + id + ": fail started\n");
}

TEST(ConsumerCommandsAlone, ActGivesUpWaitingWhenTheTimeoutIsOver) {
  int requests = 0;
  const ScriptedDch busy([&](const std::string&) -> std::vector<std::string> {
    if (++requests <= 2) return {};
    return {statusAnswer(0)};
  });
  const ProcessResult result = runProgram(ZORDC_PATH,
                                          {"act", "x", "--node", "n", "--subnode", "s", "--owner",
                                           "o", "--id", "7", "--parms", "a b", "--wait"},
                                          environmentFor(busy.port(), "1"));
  EXPECT_EQ(result.exitStatus, EX_TEMPFAIL);
  EXPECT_EQ(result.standardOutput, "action 7\n");
  EXPECT_THAT(result.standardError, EndsWith("zordc: no result of action 7 came in time\n"));
  EXPECT_THAT(busy.requests()[0], EndsWith(std::string("a b") + '\0'));
}

TEST(ConsumerCommandsAlone, ActSaysWhenNobodyAnswers) {
  const ProcessResult result = runProgram(
      ZORDC_PATH, {"act", "x", "--node", "n", "--subnode", "s", "--owner", "o", "--wait"},
      environmentFor(1, "1"));
  EXPECT_EQ(result.exitStatus, EX_UNAVAILABLE);
  EXPECT_THAT(result.standardError, EndsWith("zordc: the DCH does not answer\n"));
}

TEST(ConsumerCommandsAlone, ARequestThatIsTooLongIsRefusedWithTheReason) {
  const ScriptedDch dch(never());
  const auto act = [&](std::size_t parmsLength) {
    return runProgram(ZORDC_PATH,
                      {"act", "x", "--node", "n", "--subnode", "s", "--owner", "o", "--parms",
                       std::string(parmsLength, 'p')},
                      environmentFor(dch.port()));
  };
  // The numbers take 30 bytes, each text 7 and its own.
  EXPECT_EQ(act(4027).exitStatus, EX_OK);
  EXPECT_EQ(dch.waitForRequests(1).at(0).size(), 4096U);
  ProcessResult result = act(4028);
  EXPECT_EQ(result.exitStatus, EX_USAGE);
  EXPECT_EQ(result.standardOutput, "");
  EXPECT_EQ(result.standardError,
            "zordc: --parms is too long: with its 4028 bytes the request has 4097, and at most "
            "4096 fit\n");
  result = runProgram(
      ZORDC_PATH,
      {"defer", "--id", "1", "--key", "K", "--table", std::string(5000, 't'), "--source", "s"},
      environmentFor(dch.port()));
  EXPECT_EQ(result.exitStatus, EX_USAGE);
  EXPECT_THAT(result.standardError, StartsWith("zordc: --table is too long: "));
  EXPECT_EQ(dch.requests().size(), 1U);
}

TEST_F(ConsumerCommands, DeferIsHandedOnWithAllThatWasTold) {
  expectOutput(zordc({"defer", "--id", "42", "--key", "HMN", "--table", "LOAD", "--source", "hostA",
                      "--time", "1700000000", "--object", "255"}),
               "");
  _server.waitForError(
      "deferred: action 42, reference 0x000000ff, time 1700000000, key HMN, table LOAD, source "
      "hostA\n");
}

TEST(ConsumerCommandsAlone, ARequestThatCannotBeSentIsUnavailable) {
  constexpr int noPort = 0;
  for (const Arguments& arguments :
       {Arguments{"act", "x", "--node", "n", "--subnode", "s", "--owner", "o"},
        {"defer", "--id", "1", "--key", "K", "--table", "T", "--source", "s"},
        {"status"}}) {
    const ProcessResult result = runProgram(ZORDC_PATH, arguments, environmentFor(noPort));
    EXPECT_EQ(result.exitStatus, EX_UNAVAILABLE) << arguments[0];
    EXPECT_EQ(result.standardOutput, "");
    EXPECT_THAT(result.standardError, EndsWith("zordc: cannot send to the DCH\n"));
  }
}

// ---- Command lines ----

TEST(ConsumerCommandsAlone, AWrongCommandLineIsRefusedWithTheReason) {
  const auto refusal = [](const Arguments& arguments) {
    const ProcessResult result = runProgram(ZORDC_PATH, arguments, environmentFor(1));
    EXPECT_EQ(result.exitStatus, EX_USAGE);
    EXPECT_EQ(result.standardOutput, "");
    return result.standardError;
  };
  EXPECT_EQ(refusal({"histroy", "A", "g"}),
            "zordc: there is no subcommand 'histroy', only watch, history, apps, attrs, help, "
            "status, act, defer\nTry 'zordc --help'.\n");
  EXPECT_EQ(refusal({"history", "A", "g", "--limit", "3"}),
            "zordc: not expected: --limit 3\nTry 'zordc history --help'.\n");
  EXPECT_EQ(refusal({"attrs"}), "zordc: APPL is required\nTry 'zordc attrs --help'.\n");
  EXPECT_EQ(refusal({"help"}), "zordc: APPL is required\nTry 'zordc help --help'.\n");
  EXPECT_EQ(refusal({"apps", std::string(21, 'a')}),
            "zordc: APPL: '" + std::string(21, 'a') +
                "' is longer than 20 characters\nTry 'zordc apps --help'.\n");
  EXPECT_EQ(refusal({"apps", "-F", "xml"}),
            "zordc: --format: 'xml' is none of table, csv, jsonl\nTry 'zordc apps --help'.\n");
  for (const char* wrong : {"0", "-1", "32768", "x"})
    EXPECT_THAT(refusal({"apps", "-W", wrong}), StartsWith("zordc: --timeout"));
  EXPECT_THAT(refusal({"status", "-C", "0"}), StartsWith("zordc: --count: '0' is not"));
  EXPECT_EQ(refusal({"act"}), "zordc: NAME is required\nTry 'zordc act --help'.\n");
  EXPECT_EQ(refusal({"act", "x", "--node", "n", "--owner", "o"}),
            "zordc: --subnode is required\nTry 'zordc act --help'.\n");
  EXPECT_THAT(refusal({"act", "x", "--node", "n", "--subnode", "s", "--owner", "o", "--id", "x"}),
              HasSubstr("--id = x"));
  EXPECT_EQ(refusal({"defer", "--id", "1", "--key", "K", "--table", "T"}),
            "zordc: --source is required\nTry 'zordc defer --help'.\n");
}

}  // namespace
}  // namespace tools
