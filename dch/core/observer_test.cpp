// What those who look on are told, with and without subscribers.
#include "dch/core/observer.h"

#include "dch/core/status_events.h"
#include "dch/testkit/core_test.h"

namespace dch {
namespace {

using testkit::dataMessage;
using testkit::offlineMessage;
using testkit::onlineMessage;
using testkit::registerMessage;
using testkit::unregisterMessage;

class RecordingObserver : public Observer {
 public:
  RecordingObserver(const testkit::RecordingAnswers& answers,
                    const testkit::RecordingRowsOut& rowsOut)
      : _answers(answers), _rowsOut(rowsOut) {}

  void rowKept(const Source& source, std::string_view message, std::string_view former,
               Time time) noexcept override {
    rows.push_back(source.name + " " + std::to_string(time));
    lastRow = message;
    formerRow = former;
    sentBefore = _answers.sent.size();
    pushedBefore = _rowsOut.pushed.size();
  }
  void statusChanged(const SourceNames& names, short requestCode) noexcept override {
    events.push_back(testkit::eventText(std::string(StatusEvent(names, requestCode).message())));
  }

  void topicChanged(std::string_view topic, bool isWanted) noexcept override {
    topics.push_back((isWanted ? "+" : "-") + std::string(topic));
  }

  std::vector<std::string> topics;
  std::vector<std::string> rows;
  std::string lastRow;
  std::string formerRow;
  std::size_t sentBefore = 0;  // answers, when the last row was told
  std::size_t pushedBefore = 0;
  std::vector<std::string> events;

 private:
  const testkit::RecordingAnswers& _answers;
  const testkit::RecordingRowsOut& _rowsOut;
};

class ObserverTest : public CoreTest {
 protected:
  ObserverTest() { receiveObserved(registerMessage()); }

  void receiveObserved(const std::string& message) { _observed.receive({message, client(), 17}); }

  RecordingObserver _observer{_answers, _rowsOut};
  RecordingObserver _second{_answers, _rowsOut};
  RecordingObserver _third{_answers, _rowsOut};
  testkit::SlowStore _slow;
  Core _observed{{_answers, _rowsOut, _slow, _timer, _programs, {&_observer, &_second, &_third}},
                 _actionRules,
                 _counters,
                 _log};
};

TEST_F(ObserverTest, AreThreeAtMostAndToldTheSame) {
  receiveObserved(onlineMessage("HOSTMON", "load", "host1"));
  _slow.concludeAll();
  receiveObserved(testkit::subscribeMessage("HOSTMON", "load"));
  receiveObserved(dataMessage(1));
  _slow.concludeAll();
  receiveObserved(testkit::withdrawMessage("HOSTMON", "load"));
  EXPECT_EQ(_observer.rows.size(), 1u);
  EXPECT_FALSE(_observer.events.empty());
  const std::string topic = topicOf("HOSTMON", "load");
  EXPECT_EQ(_observer.topics, (std::vector<std::string>{"+" + topic, "-" + topic}));
  for (const RecordingObserver* each : {&_second, &_third}) {
    EXPECT_EQ(_observer.rows, each->rows);
    EXPECT_EQ(_observer.lastRow, each->lastRow);
    EXPECT_EQ(_observer.events, each->events);
    EXPECT_EQ(_observer.topics, each->topics);
  }
}

TEST_F(ObserverTest, IsToldARowWhenItIsAcknowledgedAndPublished) {
  receiveObserved(onlineMessage("HOSTMON", "load", "host1"));
  _slow.concludeAll();
  receiveObserved(testkit::subscribeMessage("HOSTMON", "load"));
  const std::string row = dataMessage(1, {{"load1", 'D', "0.42"}});
  _answers.sent.clear();
  receiveObserved(row);
  receiveObserved(row);
  EXPECT_TRUE(_observer.rows.empty()) << "it is not kept yet";
  _slow.conclude();
  EXPECT_EQ(_observer.rows, std::vector<std::string>{"host1 17"});
  EXPECT_EQ(_observer.lastRow, row);
  EXPECT_EQ(_observer.sentBefore, 1u);
  EXPECT_EQ(_observer.pushedBefore, 1u);
  _slow.conclude(false);
  EXPECT_EQ(_observer.rows.size(), 1u) << "it was not kept";
}

TEST_F(ObserverTest, IsToldTheRowBeforeOfASourceThatIsOnLine) {
  receiveObserved(onlineMessage("HOSTMON", "load", "host1"));
  _slow.concludeAll();
  const std::string first = dataMessage(1, {{"load1", 'D', "0.42"}});
  receiveObserved(first);
  _slow.concludeAll();
  EXPECT_EQ(_observer.formerRow, "");
  receiveObserved(dataMessage(1));
  _slow.concludeAll();
  EXPECT_EQ(_observer.lastRow, dataMessage(1));
  EXPECT_EQ(_observer.formerRow, first);
  receiveObserved(offlineMessage(1));
  receiveObserved(first);
  _slow.concludeAll();
  EXPECT_EQ(_observer.lastRow, first);
  EXPECT_EQ(_observer.formerRow, "");
}

TEST_F(ObserverTest, IsToldALateRowOfASourceThatIsOffLine) {
  receiveObserved(onlineMessage("HOSTMON", "load", "host1"));
  _slow.concludeAll();
  receiveObserved(offlineMessage(1));
  receiveObserved(dataMessage(1));
  _slow.concludeAll();
  EXPECT_EQ(_observer.rows, std::vector<std::string>{"host1 17"});
  EXPECT_EQ(_observer.lastRow, dataMessage(1));
}

TEST_F(ObserverTest, IsToldChangesOfStatusAlsoWithoutSubscribers) {
  for (const char* group : {"load", "disk"}) receiveObserved(onlineMessage("HOSTMON", group, "s"));
  receiveObserved(onlineMessage("HOSTMON", "disk", "s"));  // it asks again
  _slow.concludeAll();
  receiveObserved(offlineMessage(1));
  receiveObserved(unregisterMessage("HOSTMON"));
  EXPECT_EQ(_observer.events.size(), 3u) << "the others are not kept yet";
  _slow.concludeAll();
  const std::vector<std::string> events{"HOSTMON,,,1010",      "HOSTMON,load,s,1015",
                                        "HOSTMON,disk,s,1015", "HOSTMON,load,s,1025",
                                        "HOSTMON,disk,s,1020", "HOSTMON,,,1020"};
  EXPECT_EQ(_observer.events, events);
}

}  // namespace
}  // namespace dch
