// The core with a store that takes its time against one with a store that keeps at once: the
// requests of an application come to the same.
#include <gtest/gtest.h>

#include <map>
#include <random>

#include "dch/testkit/core_test.h"

namespace dch {
namespace {

using testkit::offlineMessage;
using testkit::onlineMessage;
using testkit::registerMessage;
using testkit::unregisterMessage;

class OrderTest : public CoreTest {
 protected:
  OrderTest() : CoreTest(std::make_unique<testkit::SlowStore>()) {
    _slow.concludeAll();
    atOnce(registerMessage(), client());
    // So that each of them has one handle for good, in both.
    for (const unsigned application : {0u, 1u}) {
      both(registrationOf(application, true));
      for (const char* group : {"load", "disk"})
        for (const char* source : {"host1", "host2"})
          both(onlineMessage(nameOf(application), group, source));
    }
    _slow.concludeAll();
  }

  static std::string nameOf(unsigned application) { return application == 0 ? "ONE" : "TWO"; }

  static std::string registrationOf(unsigned application, bool hasDisk) {
    return registerMessage("appl:" + nameOf(application) + ",KEY;group:load;attr:a,N,4;" +
                               (hasDisk ? "group:disk;attr:a,N,4;" : ""),
                           nameOf(application), "KEY");
  }

  std::string randomRequest(unsigned application) {
    const auto chosen = [this](unsigned count) { return static_cast<int>(_random() % count); };
    const int source = chosen(4);
    switch (chosen(10)) {
      case 0:
        return registrationOf(application, chosen(2) == 0);
      case 1:
        return unregisterMessage(nameOf(application));
      case 2:
      case 3:
      case 4:
        return offlineMessage(static_cast<ZORA_Long>(application) * 4 + source + 1);
      default:
        return onlineMessage(nameOf(application), source < 2 ? "load" : "disk",
                             source % 2 == 0 ? "host1" : "host2");
    }
  }

  // Each request has a client of its own, so that its answer is known.
  void both(const std::string& bytes) {
    ++_requests;
    receive(bytes, client(_requests));
    atOnce(bytes, client(_requests));
  }

  static std::map<std::uint16_t, std::string> byClient(const testkit::RecordingAnswers& answers) {
    std::map<std::uint16_t, std::string> all;
    for (const auto& [origin, message] : answers.sent) all[origin.peer.port] += message;
    return all;
  }

  testkit::SlowStore& _slow = static_cast<testkit::SlowStore&>(*_store);
  MemoryStore _memory;
  Counters _countersAtOnce;
  testkit::RecordingAnswers _answersAtOnce;
  Core _coreAtOnce{
      {_answersAtOnce, _rowsOut, _memory, _timer, _programs}, _actionRules, _countersAtOnce, _log};
  std::minstd_rand _random{20261122};
  unsigned _requests = 0;

 private:
  void atOnce(const std::string& bytes, const Origin& origin) {
    _coreAtOnce.receive({bytes, origin, 17});
  }
};

TEST_F(OrderTest, IsThatOfTheRequestsOfAnApplicationHoweverSlowTheStoreIs) {
  std::size_t mostWaiting = 0;
  for (int round = 0; round < 20'000; ++round) {
    both(randomRequest(_random() % 2));
    mostWaiting = std::max(mostWaiting, _slow.entries.size());
    // Now and then it catches up; most of the time it is some changes behind.
    for (std::size_t count = _random() % (round % 100 == 0 ? 100 : 3);
         count > 0 && !_slow.entries.empty(); --count)
      _slow.conclude();
  }
  _slow.concludeAll();
  EXPECT_GT(mostWaiting, 3u);
  EXPECT_EQ(_core.report(), _coreAtOnce.report());
  EXPECT_EQ(byClient(_answers), byClient(_answersAtOnce));
}

}  // namespace
}  // namespace dch
