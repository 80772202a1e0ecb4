#include "dch/actions.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "zordchcl/status.h"

namespace dch {
namespace {

IncomingMessage waiterOn(std::uint16_t port, unsigned int connection = 0) {
  IncomingMessage waiter;
  waiter.sender.port = htons(port);
  waiter.connection = connection;
  return waiter;
}

class ActionsTest : public ::testing::Test {
 protected:
  // Collects until an action of this ID has ended.
  void waitForEnd(ZORA_Long id) {
    const IncomingMessage nobody = waiterOn(9);
    while (!_actions.resultFor(nobody, id).isKnown) {
      usleep(1000);
      collect();
    }
  }

  void collect() {
    _actions.collect([this](const IncomingMessage& waiter, ZORA_Long status) {
      _told.emplace_back(ntohs(waiter.sender.port), status);
    });
  }

  ZORA_Long resultOf(ZORA_Long id) {
    const Actions::Result result = _actions.resultFor(waiterOn(9), id);
    EXPECT_TRUE(result.isKnown);
    return result.status;
  }

  bool runs(ZORA_Long id) { return !_actions.resultFor(waiterOn(9), id).isKnown; }

  const ActionList _list{{"three", {"/bin/sh", "-c", "exit 3"}},
                         {"four", {"/bin/sh", "-c", "exit 4"}},
                         {"last", {"/bin/sleep", "1000"}},
                         {"missing", {"/nowhere/program"}}};
  const EventLog _log{false};
  Actions _actions{_list, _log, {.running = 2, .results = 3, .waiters = 2}};
  std::vector<std::pair<int, ZORA_Long>> _told;  // ports of waiters, and what they were told
};

TEST_F(ActionsTest, KeepsTheResultOfAProgramThatHasEnded) {
  _actions.start("three", 1);
  waitForEnd(1);
  EXPECT_EQ(resultOf(1), 3);
  EXPECT_EQ(resultOf(1), 3);
}

TEST_F(ActionsTest, KnowsNoResultOfUnknownActions) {
  _actions.start("none", 1);
  _actions.start("", 2);
  for (const ZORA_Long id : {1, 2, 3, -1}) EXPECT_EQ(resultOf(id), DCH_STATUS_UNKNOWN_ACTION);
}

TEST_F(ActionsTest, TellsThatAProgramCouldNotBeStarted) {
  _actions.start("missing", 1);
  EXPECT_EQ(resultOf(1), 127);
}

TEST_F(ActionsTest, TellsEveryWaiterOnceWhenTheProgramEnds) {
  _actions.start("three", 1);
  EXPECT_FALSE(_actions.resultFor(waiterOn(1001), 1).isKnown);
  EXPECT_FALSE(_actions.resultFor(waiterOn(1002), 1).isKnown);
  EXPECT_FALSE(_actions.resultFor(waiterOn(1001), 1).isKnown) << "asked again";
  while (_told.empty()) {
    usleep(1000);
    collect();
  }
  EXPECT_EQ(_told, (std::vector<std::pair<int, ZORA_Long>>{{1001, 3}, {1002, 3}}));
  collect();
  EXPECT_EQ(_told.size(), 2u);
}

TEST_F(ActionsTest, LetsOnlySoManyWait) {
  _actions.start("last", 1);
  EXPECT_FALSE(_actions.resultFor(waiterOn(1001), 1).isKnown);
  EXPECT_FALSE(_actions.resultFor(waiterOn(1001, 7), 1).isKnown) << "on a connection";
  const Actions::Result refused = _actions.resultFor(waiterOn(1003), 1);
  EXPECT_TRUE(refused.isKnown);
  EXPECT_EQ(refused.status, DCH_STATUS_NOT_STORED);
}

TEST_F(ActionsTest, RunsOnlySoManyAtATime) {
  _actions.start("last", 1);
  _actions.start("three", 2);
  _actions.start("three", 3);
  EXPECT_EQ(resultOf(3), DCH_STATUS_NOT_STORED);
  waitForEnd(2);
  _actions.start("four", 3);
  waitForEnd(3);
  EXPECT_EQ(resultOf(3), 4);
}

TEST_F(ActionsTest, StartsNothingUnderTheIdOfAnActionThatRuns) {
  _actions.start("last", 1);
  for (const char* name : {"three", "last", "none", "missing"}) _actions.start(name, 1);
  EXPECT_TRUE(runs(1));
}

TEST_F(ActionsTest, ReplacesTheResultOfAnEarlierActionOfTheSameId) {
  _actions.start("three", 1);
  waitForEnd(1);
  _actions.start("four", 1);
  waitForEnd(1);
  EXPECT_EQ(resultOf(1), 4);
  _actions.start("none", 1);
  EXPECT_EQ(resultOf(1), DCH_STATUS_UNKNOWN_ACTION);
}

TEST_F(ActionsTest, KeepsOnlyTheLatestResults) {
  for (const ZORA_Long id : {1, 2, 3, 1, 4}) _actions.start("missing", id);
  EXPECT_EQ(resultOf(2), DCH_STATUS_UNKNOWN_ACTION);
  for (const ZORA_Long id : {1, 3, 4}) EXPECT_EQ(resultOf(id), 127) << id;
}

}  // namespace
}  // namespace dch
