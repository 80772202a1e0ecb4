// What becomes of changes while there is no room to publish what they cause.
#include "dch/core/held_changes.h"

#include <gtest/gtest.h>

#include "dch/testkit/core_test.h"
#include "dch/testkit/messages.h"
#include "zordchcl/messages.h"

namespace dch {
namespace {

using testkit::catalogueMessage;
using testkit::dataMessage;
using testkit::offlineMessage;
using testkit::onlineMessage;
using testkit::registerMessage;
using testkit::statusSubscribeMessage;
using testkit::subscribeMessage;
using testkit::unregisterMessage;

class HeldChangesTest : public CoreTest {
 protected:
  static constexpr unsigned subscribers = 1'000;
  static constexpr std::size_t roomFor = Publications::mostReceivers / subscribers;

  explicit HeldChangesTest(std::unique_ptr<Store> store = std::make_unique<MemoryStore>())
      : CoreTest(std::move(store)) {}

  void subscribeMany() {
    for (unsigned number = 1; number <= subscribers; ++number)
      receive(subscribeMessage("HOSTMON", "load"), client(number));
  }

  // Rows until there is no room for another one.
  void fill(ZORA_Long handle) {
    for (std::size_t i = 0; i < roomFor; ++i) receive(dataMessage(handle));
    _answers.sent.clear();
  }

  // What has been answered since the last time, in order.
  std::vector<ZORA_Long> takeStatuses() {
    std::vector<ZORA_Long> statuses;
    for (const auto& [origin, message] : _answers.sent)
      statuses.push_back(testkit::statusOf(message).value_or(-1));
    _answers.sent.clear();
    return statuses;
  }
};

using Statuses = std::vector<ZORA_Long>;

TEST_F(HeldChangesTest, AnswerRowsWhenThereIsRoomToPassThemOnAndLoseNone) {
  const ZORA_Long handle = goOnline();
  subscribeMany();
  _answers.sent.clear();
  constexpr std::size_t rows = 3 * roomFor;
  for (std::size_t i = 0; i < rows; ++i) receive(dataMessage(handle));
  EXPECT_EQ(_rowsOut.pushed.size(), 0u);
  EXPECT_EQ(_core.changesWaiting(), rows - roomFor);
  EXPECT_EQ(_answers.sent.size(), roomFor);
  for (std::size_t sent = 0; _core.isPublishing(); sent = _rowsOut.pushed.size()) {
    _core.publishMore();
    EXPECT_LE(_rowsOut.pushed.size(), sent + Publisher::pieceSize);
    EXPECT_LE(_answers.sent.size() * subscribers,
              _rowsOut.pushed.size() + Publications::mostReceivers + subscribers);
  }
  EXPECT_EQ(_answers.sent.size(), rows);
  EXPECT_EQ(_rowsOut.pushed.size(), rows * subscribers);
  EXPECT_EQ(_counters[Counter::pushesLost], 0u);
  EXPECT_EQ(_core.changesWaiting(), 0u);
}

TEST_F(HeldChangesTest, HoldUpNobodyElse) {
  receive(registerMessage("appl:OTHER,OTH;group:g;attr:load1,D,16;", "OTHER", "OTH"));
  const ZORA_Long handle = goOnline();
  const ZORA_Long other = ask(onlineMessage("OTHER", "g", "host1")).handle;
  subscribeMany();
  fill(handle);
  receive(dataMessage(handle));
  EXPECT_EQ(takeStatuses(), Statuses()) << "there is room";
  EXPECT_EQ(statusOf(dataMessage(other)), DCH_STATUS_OK);
  EXPECT_EQ(ask(catalogueMessage(DCH_REQUEST_HELP, "HOSTMON")).form, ReadAnswer::Form::text);
  EXPECT_EQ(ask(onlineMessage("OTHER", "g", "host2")).status, DCH_STATUS_OK);
  _core.finishPublishing();
  EXPECT_EQ(takeStatuses(), Statuses{DCH_STATUS_OK});
}

TEST_F(HeldChangesTest, KeepTheOrderOfAnApplication) {
  const ZORA_Long handle = goOnline();
  subscribeMany();
  fill(handle);
  receive(dataMessage(handle));
  receive(offlineMessage(handle));
  receive(dataMessage(handle));  // of a source that goes off line
  receive(onlineMessage("HOSTMON", "load", "host1"));
  receive(unregisterMessage("HOSTMON"));
  receive(unregisterMessage("HOSTMON"));
  EXPECT_EQ(takeStatuses(), Statuses()) << "there is room";
  _core.finishPublishing();
  ASSERT_EQ(_answers.sent.size(), 6u);
  EXPECT_EQ(testkit::onlineAnswerOf(_answers.sent[3].second)->handle, handle);
  _answers.sent.erase(_answers.sent.begin() + 3);
  EXPECT_EQ(takeStatuses(), (Statuses{DCH_STATUS_OK, DCH_STATUS_OK, DCH_STATUS_OK, DCH_STATUS_OK,
                                      DCH_STATUS_UNKNOWN_APPLICATION}));
  EXPECT_EQ(takePushed(1).size(), roomFor + 2);
}

TEST_F(HeldChangesTest, WaitForNobodyWhenTheSubscribersAreGone) {
  const ZORA_Long handle = goOnline();
  subscribeMany();
  fill(handle);
  receive(dataMessage(handle));
  _core.dropSubscribers([](const PeerAddress&) { return true; });
  _core.publishMore();
  EXPECT_EQ(takeStatuses(), Statuses{DCH_STATUS_OK});
  EXPECT_EQ(_rowsOut.pushed.size(), 0u);
}

TEST_F(HeldChangesTest, TellStatusInItsOrder) {
  const ZORA_Long handle = goOnline();
  subscribeMany();
  receive(statusSubscribeMessage(), client(1));
  fill(handle);
  takePushed(1);
  EXPECT_EQ(ask(offlineMessage(handle)).form, ReadAnswer::Form::none) << "there is room";
  _core.finishPublishing();
  EXPECT_EQ(takeStatuses(), Statuses{DCH_STATUS_OK});
  const std::vector<std::string> pushed = takePushed(1);
  ASSERT_EQ(pushed.size(), roomFor + 1);
  EXPECT_EQ(testkit::eventText(pushed.back()), "HOSTMON,load,host1,1025");
}

// A core whose store takes its time.
class HeldBehindAStoreTest : public HeldChangesTest {
 protected:
  HeldBehindAStoreTest() : HeldChangesTest(std::make_unique<testkit::SlowStore>()) {}
};

TEST_F(HeldBehindAStoreTest, TellWhatWasNotKeptInItsOrder) {
  auto& store = static_cast<testkit::SlowStore&>(*_store);
  store.concludeAll();
  receive(onlineMessage("HOSTMON", "load", "host1"));
  store.concludeAll();
  subscribeMany();
  for (std::size_t i = 0; i < roomFor + 2; ++i) receive(dataMessage(1));
  for (std::size_t i = 0; i < roomFor; ++i) store.conclude();
  _answers.sent.clear();
  store.conclude();
  store.conclude(false);
  EXPECT_EQ(_core.changesWaiting(), 2u);
  _core.finishPublishing();
  EXPECT_EQ(takeStatuses(), (Statuses{DCH_STATUS_OK, DCH_STATUS_NOT_STORED}));
}

}  // namespace
}  // namespace dch
