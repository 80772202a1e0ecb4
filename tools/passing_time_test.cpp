// What the tools do when time has passed.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sysexits.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <future>

#include "tests/support/passing_time.h"
#include "tests/support/scripted_dch.h"
#include "tests/support/temporary_files.h"
#include "tests/support/wait_until.h"
#include "tools/data_wait.h"
#include "tools/provider_source.h"
#include "tools/run/rows_feed.h"
#include "tools/testkit/printed_times.h"
#include "tools/testkit/requests.h"
#include "tools/testkit/run_fixture.h"
#include "tools/watch_command.h"

namespace tools {
namespace {

using testing::ElementsAre;

// A DCH that has started anew may have given the handle to another source.
TEST(PassingTime, AHandleThatMayHaveBecomeAnotherSourcesIsAskedForAgain) {
  std::atomic<ZORA_Long> handle{1};
  const ScriptedDch dch([&](const std::string& request) {
    return std::vector{requestCode(request) == DCH_REQUEST_ONLINE ? onlineAnswer(0, handle)
                                                                  : statusAnswer(0)};
  });
  suite::Registration registration;
  std::string error;
  ASSERT_TRUE(suite::parseRegistration("appl:WEATHER,WTH; type:SOCK; group:sky; attr:note,T,20;",
                                       &registration, &error));
  ProviderApplication application(registration, ProviderApplication::AtEnd::unregister);
  ProviderSource source(application, "sky", "roof");
  application.enter();
  source.goOnline();
  const suite::RegisteredAttribute note{"note", 'T', 20, ""};
  const EncodedRow row{{&note, "calm"}};
  EXPECT_EQ(source.send(row), ProviderSource::Answer::taken);
  handle = 7;
  letPass(std::chrono::seconds(2));
  EXPECT_EQ(source.send(row), ProviderSource::Answer::startedAnew);
  EXPECT_EQ(source.send(row), ProviderSource::Answer::taken);
  source.end();
  application.end();
  std::vector<char> handles;
  for (const std::string& request : dch.requests())
    if (requestCode(request) == DCH_REQUEST_DATA || requestCode(request) == DCH_REQUEST_OFFLINE)
      handles.push_back(request[21]);
  EXPECT_THAT(handles, ElementsAre(1, 7, 7));
}

// ---- Commands of zordp run ----

TEST(PassingTime, ACommandHasNoTimeLeftWhenItHasPassed) {
  const EndEvent end;
  const RunningCommand command("echo one; exec sleep 100");
  CommandOutput output(command, end, {std::chrono::hours(1), false});
  char bytes[16];
  EXPECT_EQ(output.read(bytes, sizeof bytes), 4U);
  letPass(std::chrono::hours(1));
  EXPECT_EQ(output.read(bytes, sizeof bytes), 0U);
  EXPECT_TRUE(output.hasTimedOut());
}

TEST(PassingTime, WhatACommandPrintedInTimeIsReadAfterIt) {
  const EndEvent end;
  const CommandInput input;
  const RunningCommand command("cat " + input.path());
  CommandOutput output(command, end, {std::chrono::hours(1), true});
  input.write("line\n");
  pollfd printed{command.output(), POLLIN, 0};
  ASSERT_EQ(poll(&printed, 1, -1), 1);
  letPass(std::chrono::hours(2));
  char bytes[16];
  EXPECT_EQ(output.read(bytes, sizeof bytes), 5U);
  EXPECT_FALSE(output.hasTimedOut());
  letPass(std::chrono::hours(2));
  EXPECT_EQ(output.read(bytes, sizeof bytes), 0U);
  EXPECT_TRUE(output.hasTimedOut());
}

TEST(PassingTime, ACommandDoesNotPayForWaitsForTheDch) {
  const EndEvent end;
  const TemporaryFile next("");
  const RunningCommand command("until [ -s " + next.path() + " ]; do sleep 0.01; done; echo one");
  CommandOutput output(command, end, {std::chrono::hours(1), false});
  letPass(std::chrono::hours(2));
  output.excuse(std::chrono::hours(2));
  next.write("now");
  char bytes[16];
  EXPECT_EQ(output.read(bytes, sizeof bytes), 4U);
  EXPECT_FALSE(output.hasTimedOut());
}

TEST(PassingTime, EachLineGivesACommandThatGoesOnNewTime) {
  const EndEvent end;
  const CommandInput input;
  const RunningCommand command("cat " + input.path());
  CommandOutput output(command, end, {std::chrono::hours(1), true});
  char bytes[16];
  for (int i = 0; i < 3; ++i) {
    letPass(std::chrono::minutes(40));
    input.write("line\n");
    EXPECT_EQ(output.read(bytes, sizeof bytes), 5U);
  }
  // What has no end is no line.
  letPass(std::chrono::minutes(40));
  input.write("part");
  EXPECT_EQ(output.read(bytes, sizeof bytes), 4U);
  letPass(std::chrono::minutes(40));
  EXPECT_EQ(output.read(bytes, sizeof bytes), 0U);
  EXPECT_TRUE(output.hasTimedOut());
}

// What a feed says, from its thread.
class Said {
 public:
  void add(const std::string& text) {
    const std::lock_guard lock(_mutex);
    _text += text + "\n";
  }
  std::string text() const {
    const std::lock_guard lock(_mutex);
    return _text;
  }

 private:
  mutable std::mutex _mutex;
  std::string _text;
};

TEST(PassingTime, ACommandThatGoesOnIsWellAgainAfterAMinute) {
  const ScriptedDch dch([&](const std::string& request) {
    return std::vector{requestCode(request) == DCH_REQUEST_ONLINE ? onlineAnswer(0, 1)
                                                                  : statusAnswer(0)};
  });
  const CommandInput input;
  const TemporaryFile isSecond("");
  // The first one ends at once, the second goes on.
  const RunFile file =
      readRunText(runRegistration + rowsTable("sky",
                                              "[ -s " + isSecond.path() + " ] && exec cat " +
                                                  input.path() + "; echo x >" + isSecond.path(),
                                              "columns = ['clouds']"),
                  "F");
  ProviderApplication application(file.registration, ProviderApplication::AtEnd::unregister);
  ProviderSource source(application, "sky", "roof");
  application.enter();
  source.goOnline();
  EndEvent end;
  std::atomic<std::uint64_t> rows{0};
  Said said;
  DchPresence presence([&](const std::string& text) { said.add(text); });
  RowsFeed feed(file.rows[0], source,
                {end, presence, [&](const std::string& text) { said.add(text); }, rows});
  input.write("1\n");
  ASSERT_TRUE(waitUntil([&] { return rows == 1; }, runPatience));
  EXPECT_EQ(said.text(), "sky of roof: the command has ended with status 0\n");
  letPass(std::chrono::minutes(1));
  input.write("2\n");
  ASSERT_TRUE(waitUntil([&] { return rows == 2; }, runPatience));
  ASSERT_TRUE(
      waitUntil([&] { return said.text().ends_with("sky of roof: the command is well again\n"); },
                runPatience));
  end.begin();
  feed.finish();
}

// ---- zordc ----

std::string rowOf(const std::string& note) {
  return messageOf([&](DCH_MessageBuilder& message) {
    message.add(DCH_requestType, short{DCH_REQUEST_DATA})
        .add(DCH_handle, ZORA_Long{1})
        .add(DCH_dataCode, short{0})
        .add(DCH_attrName, "note")
        .addAttributeValue(note.c_str(), static_cast<ZORA_Long>(note.size() + 1), 'T');
  });
}

// Renewed, it is that of the same socket: to a DCH that still knows it nothing changes.
TEST(PassingTime, ASubscriptionIsRenewedAfterASilence) {
  const ScriptedDch dch(onlyPushes());
  DataWait wait("WEATHER", "sky", std::nullopt);
  ASSERT_TRUE(waitForSubscriptions(dch, 1));
  letPass(std::chrono::seconds(6));
  ASSERT_TRUE(waitForSubscriptions(dch, 2));
  const Requests requests = dch.requests();
  int seen = 0;
  for (std::size_t i = 0; i < requests.size() && seen < 2; ++i) {
    if (!isSubscription(requests[i])) continue;
    const std::string row = rowOf("row " + std::to_string(++seen));
    dch.pushTo(i, row);
    ASSERT_EQ(wait.next(), DataWait::Outcome::message);
    EXPECT_EQ(std::string(wait.message().data(), row.size()), row);
  }
  EXPECT_EQ(seen, 2);
}

// Whether somebody who looks after the time has done so, with the time as it is now.
bool looksAgain(const ScriptedDch& dch) {
  const auto isQuestion = [](const std::string& request) {
    return requestCode(request) == DCH_REQUEST_HELP;
  };
  const Requests before = dch.requests();
  // One that is on its way may be of before.
  return waitForRequests(
      dch, 2 + static_cast<int>(std::count_if(before.begin(), before.end(), isQuestion)),
      isQuestion);
}

// Standard output in a file while it lives.
class OutputFile {
 public:
  OutputFile() {
    const int file = open(_file.path().c_str(), O_WRONLY | O_CLOEXEC);
    dup2(file, STDOUT_FILENO);
    close(file);
  }
  ~OutputFile() {
    dup2(_standardOutput, STDOUT_FILENO);
    close(_standardOutput);
  }
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;

  std::string content() const { return withoutTimes(_file.content()); }

 private:
  const TemporaryFile _file{""};
  const int _standardOutput = dup(STDOUT_FILENO);
};

TEST(PassingTime, EveryRowGivesTheWatchNewTime) {
  const ScriptedDch dch(onlyPushes());
  const OutputFile output;
  auto status = std::async([] { return watch({"WEATHER", "sky", "csv", 2, 1000}); });
  ASSERT_TRUE(waitForSubscriptions(dch, 1));
  // Two rows that come in more than the time that the watch has for one.
  letPass(std::chrono::seconds(600));
  pushToSubscriber(dch, rowOf("first"));
  ASSERT_TRUE(waitUntil([&] { return output.content() == "time,handle,note\nTIME,1,first\n"; }));
  letPass(std::chrono::seconds(600));
  ASSERT_TRUE(looksAgain(dch));
  pushToSubscriber(dch, rowOf("second"));
  EXPECT_EQ(status.get(), EX_OK);
  EXPECT_EQ(output.content(), "time,handle,note\nTIME,1,first\nTIME,1,second\n");
}

}  // namespace
}  // namespace tools
