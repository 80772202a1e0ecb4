// The order of the core: check, keep, apply, answer, publish; and what it counts.
#include "dch/testkit/core_test.h"

#include "zordchcl/messages.h"

namespace dch {
namespace {

using testkit::actionMessage;
using testkit::actionResultsMessage;
using testkit::catalogueMessage;
using testkit::dataMessage;
using testkit::deferralMessage;
using testkit::offlineMessage;
using testkit::onlineMessage;
using testkit::registerMessage;
using testkit::statusSubscribeMessage;
using testkit::subscribeMessage;
using testkit::unregisterMessage;
using Form = ReadAnswer::Form;

class SlowCoreTest : public CoreTest {
 protected:
  SlowCoreTest() : CoreTest(std::make_unique<testkit::SlowStore>()) { _slow.concludeAll(); }

  // Of a request whose change is kept.
  ReadAnswer askAndKeep(const std::string& bytes) {
    ask(bytes);
    _slow.concludeAll();
    return takeAnswer();
  }

  std::string applications() { return ask(catalogueMessage(DCH_REQUEST_APPLICATIONS)).text; }

  testkit::SlowStore& _slow = static_cast<testkit::SlowStore&>(*_store);
};

TEST_F(SlowCoreTest, AnswersAndPublishesARowWhenItIsKept) {
  const ZORA_Long handle = askAndKeep(onlineMessage("HOSTMON", "load", "host1")).handle;
  receive(subscribeMessage("HOSTMON", "load"));
  const std::string row = dataMessage(handle, {{"load1", 'D', "0.42"}});
  EXPECT_EQ(ask(row).form, Form::none);
  EXPECT_TRUE(takePushed().empty());
  EXPECT_EQ(_core.registry().findOnline(handle)->row, std::nullopt);
  _slow.conclude();
  EXPECT_EQ(takeAnswer().status, DCH_STATUS_OK);
  EXPECT_EQ(takePushed(), std::vector<std::string>{row});
  EXPECT_EQ(_core.registry().findOnline(handle)->row->message, row);
}

TEST_F(SlowCoreTest, PublishesARowWhoseSourceHasGoneOffLineMeanwhile) {
  const ZORA_Long handle = askAndKeep(onlineMessage("HOSTMON", "load", "host1")).handle;
  receive(subscribeMessage("HOSTMON", "load"));
  receive(offlineMessage(handle));
  const std::string row = dataMessage(handle);
  ask(row);
  _slow.concludeAll();
  ASSERT_EQ(_answers.sent.size(), 2u);
  EXPECT_EQ(testkit::statusOf(_answers.sent[1].second), DCH_STATUS_OK);
  EXPECT_EQ(takePushed(), std::vector<std::string>{row});
  EXPECT_EQ(_core.registry().findSource(handle)->row->message, row);
}

TEST_F(SlowCoreTest, AnswersARowThatIsNotKeptAndPublishesNothing) {
  const ZORA_Long handle = askAndKeep(onlineMessage("HOSTMON", "load", "host1")).handle;
  receive(subscribeMessage("HOSTMON", "load"));
  ask(dataMessage(handle));
  _slow.conclude(false);
  EXPECT_EQ(takeAnswer().status, DCH_STATUS_NOT_STORED);
  EXPECT_TRUE(takePushed().empty());
  EXPECT_EQ(_counters[Counter::changesNotKept], 1u);
}

TEST_F(SlowCoreTest, ShowsNobodyAChangeThatIsNotKept) {
  const std::string before = applications();
  for (const std::string& bytes :
       {registerMessage("appl:OTHER,OTH;group:g;attr:a,N,4;", "OTHER", "OTH"),
        unregisterMessage("HOSTMON"), onlineMessage("HOSTMON", "load", "host1"),
        registerMessage("appl:HOSTMON,HMN;group:g;attr:a,N,4;")}) {
    ask(bytes);
    EXPECT_EQ(applications(), before) << "before it is kept";
    _slow.conclude(false);
    EXPECT_EQ(takeAnswer().status, DCH_STATUS_NOT_STORED);
    EXPECT_EQ(applications(), before);
  }
}

TEST_F(SlowCoreTest, AnswersQuestionsWhileChangesWaitForTheStore) {
  ask(registerMessage("appl:OTHER,OTH;group:g;attr:a,N,4;", "OTHER", "OTH"));
  EXPECT_EQ(applications(), "HOSTMON,HMN,SOCK,load disk,0\n");
  _slow.conclude();
  EXPECT_EQ(applications(), "HOSTMON,HMN,SOCK,load disk,0\nOTHER,OTH,NODP,g,0\n");
}

TEST_F(SlowCoreTest, KeepsRowsOfManySourcesAtATime) {
  std::vector<ZORA_Long> handles;
  for (const char* source : {"h1", "h2", "h3"})
    handles.push_back(askAndKeep(onlineMessage("HOSTMON", "load", source)).handle);
  for (const ZORA_Long handle : handles) receive(dataMessage(handle));
  EXPECT_EQ(_slow.entries.size(), 3u);
  _answers.sent.clear();
  _slow.concludeAll();
  EXPECT_EQ(_answers.sent.size(), 3u);
}

TEST_F(SlowCoreTest, LetsSourcesOfAnApplicationGoOnLineSideBySide) {
  for (const char* source : {"h1", "h2", "h3"}) receive(onlineMessage("HOSTMON", "load", source));
  EXPECT_EQ(_slow.entries.size(), 3u);
}

// Asked for twice before the first is kept: the names have one handle.
TEST_F(SlowCoreTest, GivesOneHandleForTheSameNamesUnderWay) {
  receive(onlineMessage("HOSTMON", "load", "host1"), client(1));
  receive(onlineMessage("HOSTMON", "load", "host1"), client(2));
  EXPECT_EQ(_slow.entries.size(), 1u) << "the second one waits for the first";
  _answers.sent.clear();
  _slow.concludeAll();
  ASSERT_EQ(_answers.sent.size(), 2u);
  EXPECT_EQ(_answers.sent[0].first, client(1));
  EXPECT_EQ(_answers.sent[1].first, client(2));
  EXPECT_EQ(_answers.sent[0].second, _answers.sent[1].second);
}

TEST_F(SlowCoreTest, ChecksWhatWaitsForAnotherChangeWhenThatIsApplied) {
  receive(unregisterMessage("HOSTMON"), client(1));
  receive(onlineMessage("HOSTMON", "load", "host1"), client(2));
  receive(registerMessage(), client(3));
  receive(onlineMessage("HOSTMON", "load", "host1"), client(4));
  _answers.sent.clear();
  _slow.concludeAll();
  ASSERT_EQ(_answers.sent.size(), 4u);
  for (const auto& [number, status] : {std::pair{1u, DCH_STATUS_OK},
                                       {2u, DCH_STATUS_UNKNOWN_APPLICATION},
                                       {3u, DCH_STATUS_OK},
                                       {4u, DCH_STATUS_OK}}) {
    const auto& [origin, answer] = _answers.sent[number - 1];
    EXPECT_EQ(origin, client(number));
    const auto online = testkit::onlineAnswerOf(answer);
    EXPECT_EQ(online ? online->status : *testkit::statusOf(answer), status);
  }
}

// A registration waits for each source that is on its way; new ones wait behind it.
TEST_F(SlowCoreTest, LetsNoRequestOvertakeOneOfItsApplicationThatWaits) {
  receive(onlineMessage("HOSTMON", "load", "host1"));
  receive(registerMessage());
  receive(onlineMessage("HOSTMON", "load", "host2"));
  ask(registerMessage("appl:OTHER,OTH;group:g;attr:a,N,4;", "OTHER", "OTH"));
  ASSERT_EQ(_slow.entries.size(), 2u) << "another application waits for nothing";
  _slow.conclude();
  ASSERT_EQ(_slow.entries.size(), 2u);
  EXPECT_TRUE(std::holds_alternative<Registered>(_slow.entries.back().first.change));
  _slow.concludeAll();
  EXPECT_NE(_core.registry().findOnline(2), nullptr);
}

TEST_F(SlowCoreTest, ResumesWhatWaitsForAChangeThatIsNotKept) {
  receive(registerMessage(), client(1));
  receive(onlineMessage("HOSTMON", "load", "host1"), client(2));
  _slow.conclude(false);
  _slow.concludeAll();
  EXPECT_NE(_core.registry().findOnline(1), nullptr);
}

// A client that knows its handle sends on without waiting for each answer.
TEST_F(SlowCoreTest, LetsARowWaitForItsSourceToGoOnLine) {
  const ZORA_Long handle = askAndKeep(onlineMessage("HOSTMON", "load", "host1")).handle;
  askAndKeep(offlineMessage(handle));
  receive(onlineMessage("HOSTMON", "load", "host1"));
  const std::string last = dataMessage(handle, {{"load1", 'D', "0.42"}});
  for (const std::string& row : {dataMessage(handle), last}) EXPECT_EQ(ask(row).form, Form::none);
  EXPECT_EQ(_slow.entries.size(), 1u);
  _slow.concludeAll();
  EXPECT_EQ(_answers.sent.size(), 3u);
  EXPECT_EQ(_core.registry().findOnline(handle)->row->message, last);
  EXPECT_EQ(requestCount(DCH_REQUEST_DATA), 2u);
  EXPECT_EQ(_counters[Counter::rowsReceived], 2u);
}

TEST_F(SlowCoreTest, RefusesARowWhoseSourceDoesNotGoOnLine) {
  const ZORA_Long handle = askAndKeep(onlineMessage("HOSTMON", "load", "host1")).handle;
  askAndKeep(offlineMessage(handle));
  receive(onlineMessage("HOSTMON", "load", "host1"));
  ask(dataMessage(handle));
  _answers.sent.clear();
  _slow.conclude(false);
  ASSERT_EQ(_answers.sent.size(), 2u);
  EXPECT_EQ(testkit::statusOf(_answers.sent[1].second), DCH_STATUS_UNKNOWN_HANDLE);
}

// The row that came first waits behind a registration. The next one does not overtake it.
TEST_F(SlowCoreTest, KeepsTheRowsOfASourceInTheirOrder) {
  const ZORA_Long handle = askAndKeep(onlineMessage("HOSTMON", "load", "host1")).handle;
  askAndKeep(offlineMessage(handle));
  receive(onlineMessage("HOSTMON", "load", "host1"));
  receive(onlineMessage("HOSTMON", "load", "host2"));
  receive(registerMessage());
  receive(dataMessage(handle));
  _slow.conclude();
  ASSERT_NE(_core.registry().findOnline(handle), nullptr);
  const std::string last = dataMessage(handle, {{"load1", 'D', "0.42"}});
  receive(last);
  _slow.concludeAll();
  EXPECT_EQ(_core.registry().findOnline(handle)->row->message, last);
}

TEST_F(SlowCoreTest, RefusesWhatIsMoreThanMayWait) {
  receive(registerMessage());
  for (std::size_t count = 0; count < PostponedRequests::defaultCapacity; ++count)
    EXPECT_EQ(ask(unregisterMessage("HOSTMON")).form, Form::none);
  EXPECT_EQ(statusOf(unregisterMessage("HOSTMON")), DCH_STATUS_NOT_STORED);
  _slow.concludeAll();
  EXPECT_EQ(requestCount(DCH_REQUEST_UNREGISTER), 1u);
  EXPECT_EQ(requestCount(DCH_REQUEST_UNREGISTER, DCH_STATUS_UNKNOWN_APPLICATION),
            PostponedRequests::defaultCapacity - 1);
}

TEST_F(SlowCoreTest, StartsAnActionWhenItsStartIsKept) {
  receive(actionMessage("last", 1));
  EXPECT_TRUE(_programs.started.empty());
  EXPECT_EQ(ask(actionResultsMessage(1)).form, Form::none);
  _slow.conclude();
  EXPECT_EQ(_programs.started, std::vector<ZORA_Long>{1});
  _core.programEnded(1, 3, 20);
  EXPECT_EQ(takeAnswer().form, Form::none) << "before its end is kept";
  _slow.conclude();
  EXPECT_EQ(takeAnswer().status, 3);
  EXPECT_EQ(statusOf(actionResultsMessage(1)), 3);
}

TEST_F(SlowCoreTest, StartsNoActionWhoseStartIsNotKept) {
  receive(actionMessage("last", 1));
  EXPECT_EQ(ask(actionResultsMessage(1)).form, Form::none);
  _slow.conclude(false);
  EXPECT_EQ(takeAnswer().status, DCH_STATUS_NOT_STORED);
  EXPECT_TRUE(_programs.started.empty());
}

TEST_F(CoreTest, CountsAQuestionForAResultWhenItIsAnswered) {
  receive(actionMessage("last", 1));
  receive(actionResultsMessage(1));
  receive(actionResultsMessage(1));
  EXPECT_EQ(requestCount(DCH_REQUEST_ACTION_RESULTS), 0u) << "it waits";
  _core.programEnded(1, 0, 20);
  EXPECT_EQ(requestCount(DCH_REQUEST_ACTION_RESULTS), 1u);
  receive(actionResultsMessage(1));
  EXPECT_EQ(requestCount(DCH_REQUEST_ACTION_RESULTS), 2u);
}

TEST_F(CoreTest, CountsTheResultOfAProgramAsDoneAndOneThatIsNoneByItsStatus) {
  for (const ZORA_Long result : {0, 3, 100, 127}) {
    receive(actionMessage("last", result));
    _core.programEnded(result, result, 20);
    EXPECT_EQ(statusOf(actionResultsMessage(result)), result);
  }
  ask(actionResultsMessage(5));
  EXPECT_EQ(requestCount(DCH_REQUEST_ACTION_RESULTS), 4u);
  EXPECT_EQ(requestCount(DCH_REQUEST_ACTION_RESULTS, DCH_STATUS_UNKNOWN_ACTION), 1u);
  EXPECT_EQ(requestCount(DCH_REQUEST_ACTION_RESULTS, DCH_STATUS_NULL_ARGUMENT), 0u);
  EXPECT_EQ(requestCount(DCH_REQUEST_ACTION_RESULTS, DCH_STATUS_MALFORMED), 0u);
}

TEST_F(CoreTest, TellsTheResultOfAnActionThatCannotBeStarted) {
  ask(actionMessage("broken", 1));
  EXPECT_EQ(statusOf(actionResultsMessage(1)), 127);
}

TEST_F(CoreTest, AnswersBeforeItPublishes) {
  struct Order : testkit::RecordingAnswers {
    explicit Order(const testkit::RecordingRowsOut& rows) : rowsOut(rows) {}
    void send(const Origin&, std::string_view) noexcept override {
      pushedBefore = rowsOut.pushed.size();
    }
    const testkit::RecordingRowsOut& rowsOut;
    std::size_t pushedBefore = 99;
  } answers(_rowsOut);
  MemoryStore store;
  Core core({answers, _rowsOut, store, _timer, _programs}, _actionRules, _counters, _log);
  const auto take = [&](const std::string& bytes) { core.receive({bytes, client(), 1}); };
  take(registerMessage());
  take(onlineMessage("HOSTMON", "load", "host1"));
  take(subscribeMessage("HOSTMON", "load"));
  take(dataMessage(1));
  EXPECT_EQ(answers.pushedBefore, 0u);
  EXPECT_EQ(_rowsOut.pushed.size(), 1u);
}

TEST_F(CoreTest, AnswersABrokenMessageAndCountsIt) {
  _answers.sent.clear();
  _core.receiveBroken(client(1, 5));
  ASSERT_EQ(_answers.sent.size(), 1u);
  EXPECT_EQ(_answers.sent.front().first, client(1, 5));
  EXPECT_EQ(takeAnswer().status, DCH_STATUS_MALFORMED);
  EXPECT_EQ(_counters[Counter::brokenMessages], 1u);
}

TEST_F(CoreTest, AsksForItsTimerOnceWhileSubscribersOfStatusAreStillToBeTold) {
  for (int number = 0; number < 150; ++number) goOnline("load", "host" + std::to_string(number));
  receive(statusSubscribeMessage());
  goOnline("disk");
  EXPECT_EQ(_timer.started, 1);
  _core.timeIsUp();
  EXPECT_EQ(_timer.started, 1) << "all is told";
  EXPECT_EQ(takePushed().size(), 152u) << "the last one twice: when it came, and with the others";
}

// A store with all that a server knew.
class FilledStore : public MemoryStore {
 public:
  void load(const std::function<void(Change&&)>& take) override {
    Registered registered;
    std::string error;
    suite::parseRegistration(testkit::hostmonRegistration, &registered.registration, &error);
    take(std::move(registered));
    take(WentOnline{"HOSTMON", "load", "host1", 5});
    take(WentOnline{"HOSTMON", "load", "host2", 3});
    take(WentOffline{3});
    take(WentOnline{"GONE", "load", "host1", 4});
    take(Row{5, 17, "row"});
    take(Deferred{{Deferral{7, 0, 0, "", "", ""}}});
    take(ActionStarted{1, "last", "me", 1});
    take(ActionEnded{1, 2, 3});
    take(ActionStarted{2, "last", "me", 1});
  }
};

TEST_F(CoreTest, KnowsWhatTheStoreHasKept) {
  FilledStore store;
  Core core({_answers, _rowsOut, store, _timer, _programs}, _actionRules, _counters, _log);
  core.load();
  const auto statusIn = [&](const std::string& bytes) {
    core.receive({bytes, client(), 1});
    return takeAnswer();
  };
  takeAnswer();
  EXPECT_EQ(statusIn(onlineMessage("HOSTMON", "load", "host1")).handle, 5);
  EXPECT_EQ(statusIn(dataMessage(5)).status, DCH_STATUS_OK);
  EXPECT_EQ(statusIn(dataMessage(3)).status, DCH_STATUS_UNKNOWN_HANDLE);
  EXPECT_EQ(statusIn(onlineMessage("HOSTMON", "load", "host2")).handle, 3);
  EXPECT_EQ(statusIn(onlineMessage("HOSTMON", "load", "host3")).handle, 6);
  EXPECT_EQ(core.deferrals().kept().size(), 1u);
  EXPECT_EQ(statusIn(actionResultsMessage(1)).status, 3);
  EXPECT_EQ(statusIn(actionResultsMessage(2)).status, DCH_STATUS_NOT_STORED);
  EXPECT_TRUE(_programs.started.empty());
}

TEST_F(CoreTest, ReportsWhatItKnowsAndCounts) {
  const ZORA_Long handle = goOnline();
  ask(dataMessage(handle));
  ask(dataMessage(77));
  ask(deferralMessage(5));
  ask("x");
  const std::string report = _core.report();
  EXPECT_TRUE(report.starts_with(
      "zordchd: 1 application(s)\n  HOSTMON: 1 source(s) on line\nzordchd: 1 deferral(s)\n"
      "  action 5, reference 0x00001234, time 1700, key HMN, table TABLE, source host1\n"
      "zordchd: requests\n  register: 1 done\n  online: 1 done\n  data: 1 done, 1 unknown handle\n"
      "  deferral: 1 done\n  unknown request: 1 malformed message\n"
      "zordchd: counters\n  rows_received 2\n  rows_kept 1\n"))
      << report;
}

}  // namespace
}  // namespace dch
