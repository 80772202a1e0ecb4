// The connection is lost at any word of the store's: what was told to be kept is in the database,
// and nothing else is. ZORD410_SEED sets the seed.
#include <gtest/gtest.h>

#include <random>

#include "dch/postgres/kept_state_test.h"
#include "dch/testkit/postgres_gate.h"
#include "dch/testkit/random_changes.h"
#include "tests/support/variables.h"
#include "tests/support/wait_until.h"

namespace dch {
namespace {

using testkit::PostgresGate;

class StateBehindAGate : public testkit::StateInDatabase {
 public:
  std::string target() const override { return _gate.connectionString(); }
  PostgresGate& gate() { return _gate; }

 private:
  PostgresGate _gate{server()};
};

class LostConnectionsTest : public testkit::StateTest<StateBehindAGate> {
 protected:
  // In groups of some that are good, each, after those that were kept.
  void keepSome(std::vector<Change> changes) {
    for (Change& change : changes)
      if (_expected.isGood(change)) append(std::move(change));
    _store->finish();
    for (auto& [change, isKept] : _client.concluded) {
      if (!isKept) continue;
      ++_kept;
      _expectedRemote.apply(change);
      _expected.apply(std::move(change));
    }
    _refused += _client.concluded.size() - _client.keptCount();
    _client.concluded.clear();
  }

  testkit::KnownState _expected;
  testkit::RemoteModel _expectedRemote;
  std::size_t _kept = 0;
  std::size_t _refused = 0;
};

TEST_F(LostConnectionsTest, LeaveWhatWasKeptAndNothingElse) {
  const std::uint32_t seed = numberFrom("ZORD410_SEED", 4711);
  std::mt19937 random(seed);
  testkit::RandomChanges changes(seed);
  start();
  keepSome(changes.make(20));
  for (int round = 0; round < 5; ++round) {
    for (int loss = 0; loss < 15; ++loss) {
      _state.gate().loseAfter(
          static_cast<unsigned>(random() % 60 + 1),
          random() % 2 == 0 ? PostgresGate::Fate::neverCame : PostgresGate::Fate::isUnderWay);
      do {
        keepSome(changes.make(random() % 20 + 1));
      } while (!_state.gate().hasLost());
      keepSome(changes.make(20));
    }
    // What the server does not know to be lost another run cannot end.
    ASSERT_TRUE(waitUntil([&] {
      keepSome({testkit::deferred(round)});
      return !_store->figures().isFailing;
    }));
    ASSERT_EQ(knownAfterRestart(), _expected.text()) << "seed " << seed;
    ASSERT_EQ(_state.remoteRows(), _expectedRemote.rows()) << "seed " << seed;
    ASSERT_EQ(places(), _expectedRemote.places()) << "seed " << seed;
  }
  EXPECT_GT(_kept, 300u);
  EXPECT_GT(_refused, 10u);
}

}  // namespace
}  // namespace dch
