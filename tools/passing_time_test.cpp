// What the tools do when time has passed.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
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
#include "tools/testkit/printed_times.h"
#include "tools/testkit/requests.h"
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
