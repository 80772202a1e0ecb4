#include "dch/core/actions.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>

#include "dch/testkit/error_log.h"
#include "dch/testkit/recording_ports.h"
#include "zordchcl/status.h"

namespace dch {
namespace {

Origin waiterOn(std::uint16_t port, std::uint64_t connection = 0) {
  Origin waiter;
  waiter.peer.port = htons(port);
  waiter.connection = connection;
  return waiter;
}

class ActionsTest : public ::testing::Test {
 protected:
  // A request of which everything is kept.
  void start(std::string_view name, ZORA_Long id) {
    if (!_actions.request(id, name, _asker)) return;
    const auto ended = _actions.apply(ActionStarted{id, std::string(name), "me", 1});
    if (ended) _actions.apply(*ended);
  }

  std::vector<Origin> end(ZORA_Long id, ZORA_Long status) {
    _actions.programEnded(id, status);
    return _actions.apply(ActionEnded{id, 2, status});
  }

  ZORA_Long resultOf(ZORA_Long id) {
    const Actions::Result result = _actions.resultFor(waiterOn(9), id);
    EXPECT_TRUE(result.isKnown);
    return result.status;
  }

  bool runs(ZORA_Long id) { return !_actions.resultFor(waiterOn(9), id).isKnown; }

  ActionRules _rules{.list = {{"program", {"/bin/program"}}, {"missing", {"/nowhere/program"}}}};
  const PeerAddress _asker;
  const testkit::ErrorLog _log{false};
  testkit::RecordingPrograms _programs;
  Counters _counters;
  Actions _actions{_rules, _programs, _counters, _log, {.running = 2, .results = 3, .waiters = 2}};
};

TEST_F(ActionsTest, KeepsTheResultOfAProgramThatHasEnded) {
  start("program", 1);
  end(1, 3);
  EXPECT_EQ(resultOf(1), 3);
  EXPECT_EQ(resultOf(1), 3);
}

TEST_F(ActionsTest, StartsNoneForWhomItIsNotAllowed) {
  _rules.allowed = AddressRanges();
  start("program", 1);
  EXPECT_EQ(resultOf(1), DCH_STATUS_UNKNOWN_ACTION);
  EXPECT_EQ(_counters[Counter::actionsNotAllowed], 1u);
  _rules.allowed = AddressRanges::everyone();
  start("program", 1);
  EXPECT_TRUE(runs(1));
}

TEST_F(ActionsTest, KeepsAnEarlierResultFromWhomItIsNotAllowed) {
  start("program", 1);
  end(1, 3);
  _rules.allowed = AddressRanges();
  start("none", 1);
  EXPECT_EQ(resultOf(1), 3);
}

TEST_F(ActionsTest, KnowsNoResultOfUnknownActions) {
  start("none", 1);
  start("", 2);
  for (const ZORA_Long id : {1, 2, 3, -1}) EXPECT_EQ(resultOf(id), DCH_STATUS_UNKNOWN_ACTION);
}

TEST_F(ActionsTest, TellsThatAProgramCouldNotBeStarted) {
  start("missing", 1);
  EXPECT_EQ(resultOf(1), 127);
  EXPECT_EQ(_counters[Counter::actionsNotStarted], 1u);
}

TEST_F(ActionsTest, TellsEveryWaiterOnceWhenTheEndOfTheProgramIsKept) {
  start("program", 1);
  EXPECT_FALSE(_actions.resultFor(waiterOn(1001), 1).isKnown);
  EXPECT_FALSE(_actions.resultFor(waiterOn(1002), 1).isKnown);
  EXPECT_FALSE(_actions.resultFor(waiterOn(1001), 1).isKnown) << "asked again";
  _actions.programEnded(1, 3);
  EXPECT_FALSE(_actions.resultFor(waiterOn(1001), 1).isKnown) << "before it is kept";
  EXPECT_EQ(_actions.apply(ActionEnded{1, 2, 3}),
            (std::vector<Origin>{waiterOn(1001), waiterOn(1002)}));
  EXPECT_TRUE(_actions.apply(ActionEnded{1, 2, 3}).empty());
}

TEST_F(ActionsTest, RunsFromItsRequestOnUntilItsEndIsKept) {
  ASSERT_TRUE(_actions.request(1, "program", _asker));
  EXPECT_TRUE(runs(1));
  EXPECT_TRUE(_programs.started.empty()) << "before its start is kept";
  EXPECT_FALSE(_actions.request(1, "program", _asker));
  _actions.apply(ActionStarted{1, "program", "me", 1});
  EXPECT_EQ(_programs.started, std::vector<ZORA_Long>{1});
}

TEST_F(ActionsTest, HasNoResultOfItsOwnWhenItCannotBeKept) {
  ASSERT_TRUE(_actions.request(1, "program", _asker));
  EXPECT_TRUE(runs(1));
  EXPECT_EQ(_actions.abandon(1), std::vector<Origin>{waiterOn(9)});
  EXPECT_EQ(resultOf(1), DCH_STATUS_NOT_STORED);
  EXPECT_TRUE(_programs.started.empty());
}

TEST_F(ActionsTest, LetsOnlySoManyWait) {
  start("program", 1);
  EXPECT_FALSE(_actions.resultFor(waiterOn(1001), 1).isKnown);
  EXPECT_FALSE(_actions.resultFor(waiterOn(1001, 7), 1).isKnown) << "on a connection";
  const Actions::Result refused = _actions.resultFor(waiterOn(1003), 1);
  EXPECT_TRUE(refused.isKnown);
  EXPECT_EQ(refused.status, DCH_STATUS_NOT_STORED);
}

TEST_F(ActionsTest, ForgetsWhoWaitedOnAConnectionThatIsClosed) {
  start("program", 1);
  EXPECT_FALSE(_actions.resultFor(waiterOn(1001), 1).isKnown);
  EXPECT_FALSE(_actions.resultFor(waiterOn(1001, 7), 1).isKnown);
  _actions.forgetWaiters(7);
  EXPECT_EQ(_counters[Counter::waitersForgotten], 1u);
  EXPECT_FALSE(_actions.resultFor(waiterOn(1003), 1).isKnown) << "there is room again";
  EXPECT_EQ(end(1, 0), (std::vector<Origin>{waiterOn(1001), waiterOn(1003)}));
}

TEST_F(ActionsTest, RunsOnlySoManyAtATime) {
  for (const ZORA_Long id : {1, 2, 3}) start("program", id);
  EXPECT_EQ(resultOf(3), DCH_STATUS_NOT_STORED);
  EXPECT_EQ(_counters[Counter::actionsNotStarted], 1u);
  end(2, 3);
  start("program", 3);
  end(3, 4);
  EXPECT_EQ(resultOf(3), 4);
}

TEST_F(ActionsTest, StartsNothingUnderTheIdOfAnActionThatRuns) {
  start("program", 1);
  for (const char* name : {"program", "none", "missing"}) start(name, 1);
  EXPECT_TRUE(runs(1));
  EXPECT_EQ(_programs.started.size(), 1u);
}

TEST_F(ActionsTest, ReplacesTheResultOfAnEarlierActionOfTheSameId) {
  start("program", 1);
  end(1, 3);
  start("program", 1);
  EXPECT_TRUE(runs(1));
  end(1, 4);
  EXPECT_EQ(resultOf(1), 4);
  start("none", 1);
  EXPECT_EQ(resultOf(1), DCH_STATUS_UNKNOWN_ACTION);
}

TEST_F(ActionsTest, KeepsOnlyTheLatestResults) {
  for (const ZORA_Long id : {1, 2, 3, 1}) start("missing", id);
  EXPECT_EQ(_counters[Counter::resultsForgotten], 0u);
  start("missing", 4);
  EXPECT_EQ(_counters[Counter::resultsForgotten], 1u);
  EXPECT_EQ(resultOf(2), DCH_STATUS_UNKNOWN_ACTION);
  for (const ZORA_Long id : {1, 3, 4}) EXPECT_EQ(resultOf(id), 127) << id;
}

TEST_F(ActionsTest, DoesNotKnowWhatBecameOfOneThatRanWhenTheServerDied) {
  _actions.restore(ActionStarted{1, "program", "me", 1});
  EXPECT_EQ(resultOf(1), DCH_STATUS_NOT_STORED);
  _actions.restore(ActionStarted{2, "program", "me", 1});
  _actions.restore(ActionEnded{2, 1, 3});
  EXPECT_EQ(resultOf(2), 3);
  EXPECT_TRUE(_programs.started.empty());
}

}  // namespace
}  // namespace dch
