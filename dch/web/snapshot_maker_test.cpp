#include "dch/web/snapshot_maker.h"

#include <gtest/gtest.h>

#include "dch/testkit/registry_changes.h"

namespace dch {
namespace {

class SnapshotMakerTest : public testing::Test {
 protected:
  void registerText(const std::string& text) { testkit::registerText(_registry, text); }

  void registerApplication(const std::string& name) {
    registerText("appl:" + name + ",KEY;group:g;attr:a,N,4;");
  }

  ZORA_Long goOnline(const std::string& application, const std::string& source) {
    return testkit::goOnline(_registry, {application, "g", source}).handle;
  }

  void keepRow(ZORA_Long handle, Time time, const std::string& message) {
    Row row{handle, time, message};
    _registry.apply(&row);
  }

  // In the memory of the one before.
  const Snapshot& make() {
    begin();
    return finish();
  }
  void begin() {
    _maker.begin(_snapshot != nullptr ? std::move(_snapshot) : std::make_unique<Snapshot>());
    _pieces = 0;
  }
  bool addPiece() {
    ++_pieces;
    return _maker.addPiece();
  }
  const Snapshot& finish() {
    while (!addPiece()) {
    }
    _snapshot = _maker.take();
    return *_snapshot;
  }

  std::string sources() const {
    std::string lines;
    for (const Snapshot::SourceState& each : _snapshot->sources)
      lines += std::to_string(each.handle) + " " + each.application + "/" + each.group + "/" +
               each.name + (each.isOnline ? " on" : " off") + (each.isCurrent ? " current" : "") +
               " " + std::to_string(each.rowTime) + " " + each.message + "\n";
    return lines;
  }
  std::string applications() const {
    std::string names;
    for (const auto& each : *_snapshot->applications) names += each->applName + " ";
    return names;
  }

  Registry _registry;
  EarlierNumbers _earlier;
  SnapshotMaker _maker{_registry, _earlier};
  std::unique_ptr<Snapshot> _snapshot;
  std::size_t _pieces = 0;
};

TEST_F(SnapshotMakerTest, TellsNothingOfNothing) {
  make();
  EXPECT_TRUE(_snapshot->sources.empty());
  EXPECT_TRUE(_snapshot->applications->empty());
}

TEST_F(SnapshotMakerTest, TellsWhatIsRegisteredAndTheNewestRows) {
  registerApplication("B");
  registerText("appl:A,KEY;type:SOCK;help:what it is;group:g;attr:a,N,4,how much;");
  const ZORA_Long current = goOnline("A", "current");
  const ZORA_Long silent = goOnline("A", "silent");
  const ZORA_Long back = goOnline("B", "back");
  goOnline("B", "new");
  for (const ZORA_Long handle : {current, silent, back}) keepRow(handle, 10 * handle, "row");
  for (const ZORA_Long handle : {silent, back}) testkit::goOffline(_registry, handle);
  goOnline("B", "back");
  make();
  EXPECT_EQ(sources(),
            "1 A/g/current on current 10 row\n2 A/g/silent off 20 row\n3 B/g/back on 30 row\n"
            "4 B/g/new on 0 \n");
  ASSERT_EQ(applications(), "A B ");
  const suite::Registration& first = *_snapshot->applications->front();
  EXPECT_EQ(first.help, "what it is");
  EXPECT_EQ(first.groups.front().attributes.front().help, "how much");
}

TEST_F(SnapshotMakerTest, LeavesOutSourcesWhoseGroupIsNotRegistered) {
  registerApplication("A");
  registerApplication("B");
  goOnline("A", "s1");
  goOnline("B", "s2");
  testkit::unregister(_registry, "A");
  make();
  EXPECT_EQ(sources(), "2 B/g/s2 on 0 \n");
  EXPECT_EQ(applications(), "B ");
}

TEST_F(SnapshotMakerTest, ANewOneHasNothingLeftOfTheOneBefore) {
  registerApplication("A");
  for (int i = 0; i < 1'000; ++i) keepRow(goOnline("A", "s" + std::to_string(i)), i, "some row");
  EXPECT_EQ(make().sources.size(), 1'000u);
  testkit::unregister(_registry, "A");
  registerApplication("B");
  goOnline("B", "s");
  make();
  EXPECT_EQ(sources(), "1001 B/g/s on 0 \n");
}

TEST_F(SnapshotMakerTest, SharesTheApplicationsThatHaveNotChanged) {
  registerApplication("A");
  registerApplication("B");
  const ZORA_Long handle = goOnline("B", "s");
  const auto first = make().applications;
  keepRow(handle, 1, "row");
  EXPECT_EQ(make().applications, first);
  registerText("appl:B,KEY;group:g;attr:other,N,4;");
  registerApplication("AB");
  const auto second = make().applications;
  EXPECT_EQ(applications(), "A AB B ");
  EXPECT_EQ(second->front(), first->front());
  EXPECT_EQ(second->back()->groups.front().attributes.front().name, "other");
  EXPECT_EQ(first->back()->groups.front().attributes.front().name, "a") << "it stays as it was";
}

TEST_F(SnapshotMakerTest, APieceIsSmall) {
  constexpr std::size_t applicationCount = 100;
  constexpr std::size_t sourceCount = 1'000;
  for (std::size_t i = 0; i < applicationCount; ++i) registerApplication("A" + std::to_string(i));
  for (std::size_t i = 0; i < sourceCount; ++i)
    goOnline("A" + std::to_string(i % applicationCount), "s" + std::to_string(i));
  EXPECT_EQ(make().sources.size(), sourceCount);
  EXPECT_EQ(_snapshot->applications->size(), applicationCount);
  EXPECT_GE(_pieces, applicationCount / SnapshotMaker::mostApplications +
                         sourceCount / SnapshotMaker::mostSources);
  // The same with large rows.
  const std::string large(SnapshotMaker::mostBytes, 'm');
  for (ZORA_Long handle = 1; handle <= 50; ++handle) keepRow(handle, 1, large);
  make();
  EXPECT_GE(_pieces, 50u);
  EXPECT_EQ(_snapshot->sources[49].message, large);
}

// What comes and goes between two pieces is there or not; what stays is there.
TEST_F(SnapshotMakerTest, IsWholeHoweverTheRegistryChangesMeanwhile) {
  for (int i = 0; i < 100; ++i) {
    const std::string number = std::to_string(i);
    registerApplication("STAYS" + number);
    registerApplication("GOES" + number);
    for (int j = 0; j < 10; ++j) {
      goOnline("STAYS" + number, "s" + std::to_string(j));
      goOnline("GOES" + number, "s" + std::to_string(j));
    }
  }
  begin();
  for (int i = 0; !addPiece(); ++i) {
    const std::string number = std::to_string(i % 100);
    testkit::unregister(_registry, "GOES" + number);
    registerApplication("A" + number);
    registerApplication("Z" + number);
    goOnline("A" + number, "s");
    testkit::goOffline(_registry, i % 50 + 1);
  }
  _snapshot = _maker.take();
  std::size_t stayingApplications = 0;
  std::size_t stayingSources = 0;
  for (const auto& each : *_snapshot->applications)
    stayingApplications += each->applName.starts_with("STAYS") ? 1 : 0;
  for (const Snapshot::SourceState& each : _snapshot->sources)
    stayingSources += each.application.starts_with("STAYS") ? 1 : 0;
  EXPECT_EQ(stayingApplications, 100u);
  EXPECT_EQ(stayingSources, 1'000u);
  // The next one knows that the registry had changed while this one was made.
  std::size_t expected = 0;
  for (const Application* each : _registry.applications()) expected += each->isRegistered() ? 1 : 0;
  EXPECT_EQ(make().applications->size(), expected);
}

}  // namespace
}  // namespace dch
