// The core with the store in a file: what clients were answered holds after a restart.
#include <gmock/gmock.h>

#include <optional>

#include "dch/core/core.h"
#include "dch/testkit/recording_ports.h"
#include "dch/testkit/store_test.h"
#include "zordchcl/messages.h"

namespace dch {
namespace {

class CoreOnSqlite : public testing::Test {
 protected:
  // All that a server has, for one life.
  struct Life {
    explicit Life(const std::string& path, const Log& log)
        : store(
              {.path = path}, [] {}, log),
          core({answers, rowsOut, store, timer, programs}, actionRules, counters, log) {
      core.load();
    }
    SqliteStore store;
    Counters counters;
    testkit::RecordingAnswers answers;
    testkit::RecordingRowsOut rowsOut;
    testkit::CountingTimer timer;
    testkit::RecordingPrograms programs;
    const ActionRules actionRules{.list = {{"succeed", {"/bin/true"}}}};
    Core core;
  };

  CoreOnSqlite() { restart(); }

  void restart() {
    _life.reset();
    _life.emplace(_folder.path() + "/state.db", _log);
  }

  // Receives messages that come together. Returns the answers in their order.
  std::vector<std::string> ask(const std::vector<std::string>& messages) {
    _life->answers.sent.clear();
    for (const std::string& message : messages) _life->core.receive({message, {}, 17});
    _life->store.finish();
    std::vector<std::string> answers;
    for (auto& [receiver, answer] : _life->answers.sent) answers.push_back(std::move(answer));
    return answers;
  }
  ZORA_Long goOnline(const std::string& source) {
    const auto answers = ask({testkit::onlineMessage("HOSTMON", "load", source)});
    const auto answer = testkit::onlineAnswerOf(answers.at(0));
    EXPECT_EQ(answer->status, DCH_STATUS_OK);
    return answer->handle;
  }

  const TemporaryFolder _folder;
  const testkit::RecordingLog _log;
  std::optional<Life> _life;
};

TEST_F(CoreOnSqlite, WhatWasAnsweredHoldsAfterARestart) {
  ASSERT_EQ(testkit::statusOf(ask({testkit::registerMessage()}).at(0)), DCH_STATUS_OK);
  const ZORA_Long first = goOnline("host1");
  const ZORA_Long second = goOnline("host2");
  const std::string row = testkit::dataMessage(first);
  EXPECT_EQ(ask({row, row, testkit::offlineMessage(second)}).size(), 3u);
  ask({testkit::actionMessage("succeed", 7), testkit::deferralMessage(7)});
  _life->core.programEnded(7, 3, 18);
  _life->store.finish();
  const std::string report = ask({testkit::catalogueMessage(DCH_REQUEST_APPLICATIONS)}).at(0);

  restart();
  EXPECT_EQ(ask({testkit::catalogueMessage(DCH_REQUEST_APPLICATIONS)}).at(0), report);
  EXPECT_EQ(testkit::statusOf(ask({row}).at(0)), DCH_STATUS_OK) << "it is on line still";
  EXPECT_EQ(testkit::statusOf(ask({testkit::dataMessage(second)}).at(0)),
            DCH_STATUS_UNKNOWN_HANDLE);
  EXPECT_EQ(goOnline("host2"), second);
  EXPECT_EQ(goOnline("host3"), second + 1);
  EXPECT_EQ(testkit::statusOf(ask({testkit::actionResultsMessage(7)}).at(0)), 3);
  EXPECT_EQ(_life->core.deferrals().kept().size(), 1u);
}

TEST_F(CoreOnSqlite, RequestsThatComeTogetherAreAnsweredInTheirOrder) {
  const auto answers =
      ask({testkit::registerMessage(), testkit::onlineMessage("HOSTMON", "load", "host1"),
           testkit::dataMessage(1), testkit::unregisterMessage("HOSTMON"),
           testkit::onlineMessage("HOSTMON", "load", "host1")});
  // The row came when its source was not on line yet; the others waited for each other.
  ASSERT_EQ(answers.size(), 5u);
  EXPECT_EQ(testkit::statusOf(answers[0]), DCH_STATUS_UNKNOWN_HANDLE);
  EXPECT_EQ(testkit::statusOf(answers[1]), DCH_STATUS_OK);
  restart();
  EXPECT_EQ(_life->core.registry().applications().size(), 0u);
}

}  // namespace
}  // namespace dch
