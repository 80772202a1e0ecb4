// What the tools do with a wrong command line, missing files, and a DCH that is absent, refuses or
// sends nonsense.
#include <gmock/gmock.h>
#include <signal.h>
#include <sysexits.h>

#include <utility>

#include "tests/support/scripted_dch.h"
#include "tools/testkit/requests.h"
#include "tools/testkit/tools_fixture.h"

namespace tools {
namespace {

using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::StartsWith;

// Nothing of what follows gets as far as asking the DCH, unless a test names another environment.
const Environment nobody = environmentFor(1);

ProcessResult zordp(const Arguments& arguments, const Environment& environment = nobody) {
  return runProgram(ZORDP_PATH, arguments, environment);
}
ProcessResult zordc(const Arguments& arguments, const Environment& environment = nobody) {
  return runProgram(ZORDC_PATH, arguments, environment);
}

class Registration : public ::testing::Test {
 protected:
  Arguments sendArguments(const Arguments& more = {}) const {
    Arguments arguments{"send", "-r", _registration.path(), "-g", "sky", "-s", "roof"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return arguments;
  }
  const TemporaryFile _registration{registrationText};
};

// ---- Command lines ----

TEST(CommandLine, VersionAndHelpAreToldOnStandardOutput) {
  for (const char* option : {"-V", "--version"}) {
    EXPECT_EQ(zordp({option}).standardOutput, "zordp 4.1.0\n");
    EXPECT_EQ(zordc({option}).standardOutput, "zordc 4.1.0\n");
  }
  const ProcessResult help = zordp({"--help"});
  EXPECT_EQ(help.exitStatus, EX_OK);
  EXPECT_EQ(help.standardError, "");
  EXPECT_THAT(help.standardOutput, HasSubstr("Usage: zordp [OPTIONS] SUBCOMMAND\n"));
  EXPECT_THAT(help.standardOutput, HasSubstr("Example:\n  zordp send -r demo.reg -g load"));
  EXPECT_THAT(help.standardOutput, HasSubstr("76 the DCH refused a request"));
  const ProcessResult watchHelp = zordc({"watch", "-h"});
  EXPECT_EQ(watchHelp.exitStatus, EX_OK);
  EXPECT_THAT(watchHelp.standardOutput, HasSubstr("Usage: zordc watch [OPTIONS] APPL GROUP\n"));
  EXPECT_THAT(watchHelp.standardOutput, HasSubstr("Examples:\n  zordc watch HOSTMON load\n"));
  EXPECT_THAT(zordp({"send", "--help"}).standardOutput,
              HasSubstr("-r,--registration FILE (required)"));
  EXPECT_THAT(zordc({"--help"}).standardOutput, HasSubstr("75 a wait ran out"));
}

TEST(CommandLine, AWrongOneIsRefusedWithTheReason) {
  const auto refusal = [](const ProcessResult& result) {
    EXPECT_EQ(result.exitStatus, EX_USAGE);
    EXPECT_EQ(result.standardOutput, "");
    return result.standardError;
  };
  EXPECT_EQ(refusal(zordp({})), "zordp: A subcommand is required\nTry 'zordp --help'.\n");
  EXPECT_EQ(refusal(zordp({"sned"})),
            "zordp: there is no subcommand 'sned', only send, run\nTry 'zordp --help'.\n");
  EXPECT_EQ(refusal(zordp({"send", "-g", "g", "-s", "s"})),
            "zordp: --registration is required\nTry 'zordp send --help'.\n");
  EXPECT_EQ(refusal(zordp({"send", "-r", "r", "-g", "g", "-s", std::string(33, 's')})),
            "zordp: --source: '" + std::string(33, 's') +
                "' is longer than 32 characters\nTry 'zordp send --help'.\n");
  EXPECT_EQ(refusal(zordp({"send", "-r", "r", "-g", "", "-s", "s"})),
            "zordp: --group: the name is empty\nTry 'zordp send --help'.\n");
  EXPECT_EQ(refusal(zordp({"send", "-r", "r", "-g", "g", "-s", "s", "-F", "xml"})),
            "zordp: --format: 'xml' is none of csv, jsonl\nTry 'zordp send --help'.\n");
  EXPECT_EQ(refusal(zordc({"watch", "A"})),
            "zordc: GROUP is required\nTry 'zordc watch --help'.\n");
  EXPECT_EQ(refusal(zordc({"watch", std::string(21, 'a'), "g"})),
            "zordc: APPL: '" + std::string(21, 'a') +
                "' is longer than 20 characters\nTry 'zordc watch --help'.\n");
  for (const char* wrong : {"0", "-1", "x", "1e99", "nan"})
    EXPECT_EQ(refusal(zordc({"watch", "a", "g", "-W", wrong})),
              "zordc: --timeout: '" + std::string(wrong) +
                  "' is not a number above 0 and up to 1000000000\nTry 'zordc watch --help'.\n");
  EXPECT_THAT(refusal(zordc({"watch", "a", "g", "-C", "1.5"})), HasSubstr("--count = 1.5"));
}

TEST_F(Registration, AGroupThatItDoesNotHaveIsRefused) {
  const ProcessResult result = zordp({"send", "-r", _registration.path(), "-g", "see", "-s", "x"});
  EXPECT_EQ(result.exitStatus, EX_USAGE);
  EXPECT_EQ(result.standardError,
            "zordp: " + _registration.path() + " has no group 'see', it has: sky, odd\n");
}

// ---- Files ----

TEST_F(Registration, FilesThatCannotBeReadAreNamed) {
  ProcessResult result = zordp({"send", "-r", "/nowhere/a.reg", "-g", "sky", "-s", "x"});
  EXPECT_EQ(result.exitStatus, EX_NOINPUT);
  EXPECT_EQ(result.standardError, "zordp: cannot open /nowhere/a.reg: No such file or directory\n");
  result = zordp({"send", "-r", "/", "-g", "sky", "-s", "x"});
  EXPECT_EQ(result.exitStatus, EX_NOINPUT);
  EXPECT_EQ(result.standardError, "zordp: cannot read /: Is a directory\n");
  result = zordp(sendArguments({"-i", "/nowhere/rows.csv"}));
  EXPECT_EQ(result.exitStatus, EX_NOINPUT);
  EXPECT_EQ(result.standardError,
            "zordp: cannot open /nowhere/rows.csv: No such file or directory\n");
}

TEST_F(Registration, ATextThatBreaksARuleIsRefusedWithItsClause) {
  const TemporaryFile wrong("appl:WEATHER,WTH; group:sky; attr:clouds,Q,4;");
  const ProcessResult result = zordp({"send", "-r", wrong.path(), "-g", "sky", "-s", "x"});
  EXPECT_EQ(result.exitStatus, EX_DATAERR);
  EXPECT_THAT(result.standardError, StartsWith("zordp: " + wrong.path() + ": clause 3 "));
  EXPECT_THAT(result.standardError, HasSubstr("attr:clouds,Q,4"));
}

TEST_F(Registration, ANumberOfAnotherSizeIsRefused) {
  const ProcessResult result = zordp({"send", "-r", _registration.path(), "-g", "odd", "-s", "x"});
  EXPECT_EQ(result.exitStatus, EX_DATAERR);
  EXPECT_EQ(result.standardError, "zordp: " + _registration.path() +
                                      ": attribute 'size3': a number of letter G has size 2, 4 or "
                                      "8, not 3\n");
}

// ---- Settings and absent servers ----

TEST_F(Registration, SettingsThatLeadNowhereAreRefused) {
  Environment unknownHost = nobody;
  unknownHost["ZORA_DCH_ADDR"] = "no.such.host.invalid";
  for (const ProcessResult& result :
       {zordp(sendArguments(), unknownHost), zordc({"watch", "a", "g"}, unknownHost)}) {
    EXPECT_EQ(result.exitStatus, EX_UNAVAILABLE);
    EXPECT_THAT(result.standardError,
                EndsWith(": ZORA_DCH_ADDR names an unknown host: 'no.such.host.invalid'\n"));
  }
  Environment otherTransport = nobody;
  otherTransport["ZORA_DCH_IPCTYPE"] = "2";
  for (const ProcessResult& result :
       {zordp(sendArguments(), otherTransport), zordc({"watch", "a", "g"}, otherTransport)}) {
    EXPECT_EQ(result.exitStatus, EX_UNAVAILABLE);
    EXPECT_THAT(result.standardError, HasSubstr("ZORA_DCH_IPCTYPE is 2, but"));
  }
}

TEST_F(Registration, ADchThatDoesNotAnswerIsUnavailable) {
  ScriptedDch silent(never());
  const ProcessResult result = zordp(sendArguments(), environmentFor(silent.port(), "1"));
  EXPECT_EQ(result.exitStatus, EX_UNAVAILABLE);
  EXPECT_THAT(result.standardError,
              EndsWith("zordp: registration failed: status 5 (no answer from the DCH)\n"));
  // Nothing was on line or registered, as far as zordp knows: it asked for nothing else.
  EXPECT_EQ(silent.waitForRequests(1).size(), 1U);
}

TEST(Watch, TheTimeoutEndsItWithoutADchToo) {
  ScriptedDch silent(never());
  const ProcessResult result =
      zordc({"watch", "WEATHER", "sky", "-W", "0.1"}, environmentFor(silent.port()));
  EXPECT_EQ(result.exitStatus, EX_TEMPFAIL);
  EXPECT_EQ(silent.waitForRequests(2).size(), 2U);  // start and stop
}

// ---- Refusals ----

// Answers well, but a request of that code with the status.
ScriptedDch::Script refusing(short code, ZORA_Long status) {
  return [=](const std::string& request) -> std::vector<std::string> {
    const ZORA_Long answer = requestCode(request) == code ? status : 0;
    if (requestCode(request) == DCH_REQUEST_ONLINE) return {onlineAnswer(answer, 1)};
    return {statusAnswer(answer)};
  };
}

TEST_F(Registration, ARefusalIsToldWithItsNumberAndText) {
  ScriptedDch dch(refusing(DCH_REQUEST_ONLINE, 102));
  const ProcessResult result = zordp(sendArguments(), environmentFor(dch.port()));
  EXPECT_EQ(result.exitStatus, EX_PROTOCOL);
  EXPECT_EQ(result.standardError, "zordp: online failed: status 102 (unknown attribute group)\n");
  EXPECT_EQ(codesOf(dch.requests()),
            (std::vector<short>{DCH_REQUEST_REGISTER, DCH_REQUEST_ONLINE, DCH_REQUEST_UNREGISTER}));
}

TEST_F(Registration, ARowThatIsRefusedEndsTheInputInGoodOrder) {
  ScriptedDch dch(refusing(DCH_REQUEST_DATA, 105));
  const TemporaryFile rows("clouds\n1\n2\n");
  const ProcessResult result =
      zordp(sendArguments({"-i", rows.path()}), environmentFor(dch.port()));
  EXPECT_EQ(result.exitStatus, EX_PROTOCOL);
  EXPECT_EQ(result.standardError,
            "zordp: sending a row failed: status 105 (not stored); 0 rows sent before\n");
  EXPECT_EQ(codesOf(withoutHandleChecks(dch.requests())),
            (std::vector<short>{DCH_REQUEST_REGISTER, DCH_REQUEST_ONLINE, DCH_REQUEST_DATA,
                                DCH_REQUEST_OFFLINE, DCH_REQUEST_UNREGISTER}));
}

// ---- Nonsense from the network ----

std::string rowMessage(ZORA_Long handle) {
  return messageOf([&](DCH_MessageBuilder& message) {
    message.add(DCH_requestType, static_cast<short>(DCH_REQUEST_DATA));
    message.add(DCH_handle, handle);
    message.add(DCH_dataCode, short{0});
    message.add(DCH_attrName, "note").addAttributeValue("calm\0", 5, 'T');
  });
}

TEST(Watch, AMalformedMessageIsToldAndSkipped) {
  ScriptedDch dch(onlyPushes());
  Process watcher(ZORDC_PATH, {"watch", "WEATHER", "sky", "-C", "1", "-F", "csv"},
                  environmentFor(dch.port()));
  ASSERT_TRUE(waitForSubscriptions(dch, 1));
  pushToSubscriber(dch, statusAnswer(0));
  pushToSubscriber(dch, rowMessage(9));
  const ProcessResult seen = watcher.finish();
  EXPECT_EQ(seen.exitStatus, EX_OK);
  EXPECT_EQ(seen.standardError,
            "zordc: warning: a malformed message was skipped: field 1: DCH_requestType expected, "
            "type 17 found\n");
  EXPECT_THAT(seen.standardOutput, HasSubstr(",9,calm\n"));
}

TEST(Watch, AfterAFailedWaitItSubscribesAgain) {
  // The first subscription gets what is no message, every later one a row.
  bool isFirst = true;
  ScriptedDch dch([&](const std::string& request) -> std::vector<std::string> {
    if (!isSubscription(request)) return {statusAnswer(0)};
    return {rowMessage(9) +
            (std::exchange(isFirst, false) ? "more than its length word says" : "")};
  });
  const ProcessResult seen =
      zordc({"watch", "WEATHER", "sky", "-C", "1", "-F", "csv"}, environmentFor(dch.port()));
  EXPECT_EQ(seen.exitStatus, EX_OK);
  EXPECT_THAT(seen.standardError,
              HasSubstr("zordc: warning: the wait for rows failed, subscribing again\n"));
  EXPECT_THAT(seen.standardOutput, HasSubstr(",9,calm\n"));
}

TEST(Status, AfterAFailedWaitItSubscribesAgain) {
  const std::string event = messageOf([](DCH_MessageBuilder& message) {
    message.add(DCH_applName, "WEATHER")
        .add(DCH_attrGroup, "sky")
        .add(DCH_sourceName, "roof")
        .add(DCH_requestType, short{DCH_REQUEST_ONLINE});
  });
  // The first subscription gets what is no change, every later one a change.
  bool isFirst = true;
  ScriptedDch dch([&](const std::string& request) -> std::vector<std::string> {
    if (isSubscription(request) && !std::exchange(isFirst, false)) return {event};
    return {statusAnswer(0)};
  });
  const ProcessResult result =
      zordc({"status", "-C", "1", "-F", "csv"}, environmentFor(dch.port()));
  EXPECT_EQ(result.exitStatus, EX_OK);
  EXPECT_THAT(
      result.standardError,
      HasSubstr("zordc: warning: the wait for a change of status failed, subscribing again\n"));
  EXPECT_THAT(result.standardOutput, HasSubstr(",online,WEATHER,sky,roof\n"));
}

}  // namespace
}  // namespace tools
