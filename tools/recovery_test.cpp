// What the tools do when the DCH goes silent, or answers as one that has started anew.
#include <gmock/gmock.h>
#include <signal.h>
#include <sysexits.h>

#include <atomic>

#include "tests/support/scripted_dch.h"
#include "tools/testkit/printed_times.h"
#include "tools/testkit/requests.h"
#include "tools/testkit/tools_fixture.h"
#include "zordchcl/status.h"

namespace tools {
namespace {

using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::HasSubstr;

using Answers = std::vector<std::string>;

// What a DCH answers to which all is well.
Answers done(const std::string& request) {
  if (requestCode(request) == DCH_REQUEST_ONLINE) return {onlineAnswer(0, 1)};
  return {statusAnswer(0)};
}

// ---- zordp ----

// The time-out of those tests that have to wait for it.
constexpr char shortTimeoutSeconds[] = "3";

ProcessResult send(const std::string& rows, const Environment& environment) {
  const TemporaryFile registration(registrationText);
  const TemporaryFile input(rows);
  return runProgram(
      ZORDP_PATH,
      {"send", "-r", registration.path(), "-g", "sky", "-s", "roof", "-i", input.path()},
      environment);
}
ProcessResult send(const ScriptedDch& dch, const std::string& rows) {
  return send(rows, environmentFor(dch.port()));
}

TEST(SendRecovery, ADchThatForgotTheSourceIsToldAnew) {
  int rows = 0;
  bool forgot = false;
  const ScriptedDch dch([&](const std::string& request) {
    if (requestCode(request) == DCH_REQUEST_DATA && ++rows == 2) {
      forgot = true;
      return Answers{statusAnswer(DCH_STATUS_UNKNOWN_HANDLE)};
    }
    if (requestCode(request) == DCH_REQUEST_REGISTER) forgot = false;
    if (requestCode(request) == DCH_REQUEST_ONLINE && forgot)
      return Answers{onlineAnswer(DCH_STATUS_UNKNOWN_APPLICATION, 0)};
    return done(request);
  });
  const ProcessResult result = send(dch, "clouds\n1\n2\n");
  EXPECT_EQ(result.exitStatus, EX_OK);
  EXPECT_EQ(result.standardError, "zordp: the DCH has started anew: registered again\n");
  const Requests requests = withoutHandleChecks(dch.requests());
  EXPECT_THAT(
      codesOf(requests),
      ElementsAre(DCH_REQUEST_REGISTER, DCH_REQUEST_ONLINE, DCH_REQUEST_DATA, DCH_REQUEST_DATA,
                  DCH_REQUEST_ONLINE, DCH_REQUEST_REGISTER, DCH_REQUEST_ONLINE, DCH_REQUEST_DATA,
                  DCH_REQUEST_OFFLINE, DCH_REQUEST_UNREGISTER));
  EXPECT_EQ(requests[3], requests[7]);  // the row that was not taken
}

// Waits until so many rows have come, each sending of a row counted. Returns false when they do not
// in time.
bool waitForRows(const ScriptedDch& dch, int count) {
  return waitForRequests(dch, count, [](const std::string& request) {
    return requestCode(request) == DCH_REQUEST_DATA;
  });
}

// A DCH that has started anew may have given the handle to another source.
TEST(SendRecovery, AHandleThatMayHaveBecomeAnotherSourcesIsAskedForAgain) {
  std::atomic<ZORA_Long> handle{1};
  std::atomic<bool> isSilent{false};
  const ScriptedDch dch([&](const std::string& request) {
    if (requestCode(request) == DCH_REQUEST_DATA && isSilent.exchange(false)) {
      handle = 2;
      return Answers{};
    }
    if (requestCode(request) == DCH_REQUEST_ONLINE) return Answers{onlineAnswer(0, handle)};
    return Answers{statusAnswer(0)};
  });
  const TemporaryFile registration(registrationText);
  Process zordp(ZORDP_PATH, {"send", "-r", registration.path(), "-g", "sky", "-s", "roof"},
                environmentFor(dch.port(), shortTimeoutSeconds));
  zordp.write("clouds\n1\n");
  ASSERT_TRUE(waitForRows(dch, 1));
  isSilent = true;  // while it waits for an answer
  zordp.write("2\n");
  zordp.waitForError("zordp: the DCH has started anew: registered again\n");
  EXPECT_EQ(zordp.finish().exitStatus, EX_OK);
  std::vector<char> handles;
  for (const std::string& request : dch.requests())
    if (requestCode(request) == DCH_REQUEST_DATA || requestCode(request) == DCH_REQUEST_OFFLINE)
      handles.push_back(request[21]);
  EXPECT_THAT(handles, ElementsAre(1, 1, 2, 2));
}

TEST(SendRecovery, ADchThatAnswersAgainGetsTheRowAgain) {
  std::atomic<int> rows{0};
  const ScriptedDch dch([&](const std::string& request) {
    return requestCode(request) == DCH_REQUEST_DATA && ++rows <= 2 ? Answers{} : done(request);
  });
  const ProcessResult result = send("clouds\n1\n", environmentFor(dch.port(), shortTimeoutSeconds));
  EXPECT_EQ(result.exitStatus, EX_OK);
  // Between them stands what the library says of each wait.
  EXPECT_THAT(result.standardError,
              AllOf(HasSubstr("zordp: the DCH does not answer; trying again\n"),
                    EndsWith("zordp: the DCH answers again\n")));
  EXPECT_EQ(rows, 3);
}

TEST(SendRecovery, ASignalEndsTheTrying) {
  const ScriptedDch dch([](const std::string& request) {
    return requestCode(request) == DCH_REQUEST_DATA ? Answers{} : done(request);
  });
  const TemporaryFile registration(registrationText);
  Process zordp(ZORDP_PATH, {"send", "-r", registration.path(), "-g", "sky", "-s", "roof"},
                environmentFor(dch.port(), shortTimeoutSeconds));
  zordp.write("clouds\n1\n");
  zordp.waitForError("zordp: the DCH does not answer; trying again\n");
  zordp.signal(SIGTERM);
  const ProcessResult result = zordp.finish();
  EXPECT_EQ(result.exitStatus, 128 + SIGTERM);
  EXPECT_THAT(result.standardError,
              EndsWith("zordp: stopped by signal 15 (Terminated), 0 rows sent\n"));
}

TEST(SendRecovery, ALateAnswerIsNotTakenForThatOfTheNextRow) {
  int rows = 0;
  const ScriptedDch dch([&](const std::string& request) {
    if (requestCode(request) != DCH_REQUEST_DATA) return done(request);
    return ++rows == 1 ? Answers{statusAnswer(0), statusAnswer(0)} : Answers{statusAnswer(105)};
  });
  const ProcessResult result = send(dch, "clouds\n1\n2\n");
  EXPECT_EQ(result.exitStatus, EX_PROTOCOL);
  EXPECT_EQ(result.standardError,
            "zordp: sending a row failed: status 105 (not stored); 1 row sent before\n");
}

TEST(SendRecovery, ADchThatForgotTheSourceNeedNotBeToldOfItsEnd) {
  const ScriptedDch dch([&](const std::string& request) {
    if (requestCode(request) == DCH_REQUEST_OFFLINE)
      return Answers{statusAnswer(DCH_STATUS_UNKNOWN_HANDLE)};
    if (requestCode(request) == DCH_REQUEST_UNREGISTER)
      return Answers{statusAnswer(DCH_STATUS_UNKNOWN_APPLICATION)};
    return done(request);
  });
  const ProcessResult result = send(dch, "clouds\n1\n");
  EXPECT_EQ(result.exitStatus, EX_OK);
  EXPECT_EQ(result.standardError, "");
}

// ---- zordc ----

std::string statusEvent(short code) {
  return messageOf([&](DCH_MessageBuilder& message) {
    message.add(DCH_applName, "WEATHER")
        .add(DCH_attrGroup, "sky")
        .add(DCH_sourceName, "roof")
        .add(DCH_requestType, code);
  });
}

TEST(WatchRecovery, SubscribesAgainAndSaysSo) {
  // A DCH that is away when the subscription comes, and there for the third question.
  std::atomic<int> questions{0};
  std::atomic<int> renewals{0};
  const ScriptedDch dch([&](const std::string& request) {
    if (requestCode(request) == DCH_REQUEST_HELP)
      return ++questions >= 3 ? Answers{statusAnswer(0)} : Answers{};
    ++renewals;
    return Answers{};
  });
  Process watcher(ZORDC_PATH, {"watch", "WEATHER", "sky"}, environmentFor(dch.port()));
  watcher.waitForError("zordc: the DCH does not answer; trying again\n");
  watcher.waitForError("zordc: the DCH answers again: subscribed again\n");
  watcher.signal(SIGTERM);
  EXPECT_EQ(watcher.finish().exitStatus, EX_OK);
  EXPECT_GE(renewals, 2);
}

TEST(StatusRecovery, WhatIsOnLineAlreadyIsNoChange) {
  const ScriptedDch dch(onlyPushes());
  Process status(ZORDC_PATH, {"status", "-C", "3", "-F", "csv"}, environmentFor(dch.port()));
  ASSERT_TRUE(waitForSubscriptions(dch, 1));
  for (const short code :
       {DCH_REQUEST_ONLINE, DCH_REQUEST_ONLINE, DCH_REQUEST_OFFLINE, DCH_REQUEST_ONLINE})
    pushToSubscriber(dch, statusEvent(code));
  const ProcessResult seen = status.finish();
  EXPECT_EQ(withoutTimes(seen.standardOutput),
            "time,change,application,group,source\n"
            "TIME,online,WEATHER,sky,roof\n"
            "TIME,offline,WEATHER,sky,roof\n"
            "TIME,online,WEATHER,sky,roof\n");
}

}  // namespace
}  // namespace tools
