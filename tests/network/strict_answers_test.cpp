// With ZOR0_STRICT_ANSWERS no answer is ever taken for that of another request, however bad the
// network is. Every request asks for something else and every answer says what it answers, so a
// wrong one shows.
#include <gmock/gmock.h>

#include <cstdlib>
#include <deque>
#include <map>
#include <random>

#include "suite/sockets.h"
#include "tests/support/scripted_dch.h"
#include "tests/support/stepped_dch.h"
#include "zordchcl/zordchcl.h"
#include "zordsock/settings.h"

namespace {

constexpr int requestCount = 10'000;
constexpr int poolSockets = 32;

// Loses, repeats, delays and reorders answers, by chance but the same in every run. Time is counted
// in requests: an answer that is late comes while a later request waits for its own.
class BadNetwork {
 public:
  // Where each request is to leave from a port of its own, the system still gives one of its some
  // 28,000 ports again now and then. Nothing can tell a late answer to that one from the right one:
  // `leavesOutPortsUsedAgain` only counts it.
  explicit BadNetwork(bool leavesOutPortsUsedAgain)
      : _leavesOutPortsUsedAgain(leavesOutPortsUsedAgain) {}

  std::vector<SteppedDch::Datagram> carry(const std::string& answer, unsigned short port) {
    _lastRequestFrom[port] = ++_now;
    std::vector<SteppedDch::Datagram> arrivals;
    const bool isLost = happens(0.1);
    const bool isLate = !isLost && happens(0.2);
    const bool isFirst = happens(0.5);
    if (!isLost && !isLate && isFirst) arrivals.push_back({port, answer});
    takeWhatIsDue(&arrivals);
    if (!isLost && !isLate && !isFirst) arrivals.push_back({port, answer});
    if (isLate) delay(answer, port);
    if (!isLost && happens(0.3)) delay(answer, port);  // a second copy
    return arrivals;
  }

  // Late answers to a port that another request of ours has left from since.
  int sentToAPortUsedAgain() const { return _sentToAPortUsedAgain; }

 private:
  struct Late {
    int request;
    int due;
    SteppedDch::Datagram datagram;
  };

  bool happens(double chance) { return std::uniform_real_distribution<>(0, 1)(_random) < chance; }

  // Often by one request, and by as many as it takes until a socket's turn comes again.
  void delay(const std::string& answer, unsigned short port) {
    const int requests = happens(0.5) ? 1 : happens(0.5) ? poolSockets : longDelay();
    _late.push_back({_now, _now + requests, {port, answer}});
  }

  int longDelay() { return std::uniform_int_distribution<>(2, 3 * poolSockets)(_random); }

  void takeWhatIsDue(std::vector<SteppedDch::Datagram>* arrivals) {
    std::deque<Late> stillLate;
    for (Late& each : _late) {
      if (each.due > _now)
        stillLate.push_back(std::move(each));
      else if (!isUsedAgain(each) && isOurs(each.datagram.port))
        arrivals->push_back(std::move(each.datagram));
    }
    _late = std::move(stillLate);
  }

  bool isUsedAgain(const Late& each) {
    if (_lastRequestFrom[each.datagram.port] == each.request) return false;
    ++_sentToAPortUsedAgain;
    return _leavesOutPortsUsedAgain;
  }

  // What goes to a port that no socket has any more arrives nowhere; or at another program, which
  // is not to be disturbed.
  static bool isOurs(unsigned short port) {
    for (int i = 0; i < zordsock::_envDCHUDPSocks; ++i)
      if (ZOR0_RetrieveSockPort(zordsock::_UDPSockList[i].sockUDP) == port) return true;
    return false;
  }

  const bool _leavesOutPortsUsedAgain;
  std::mt19937 _random{20261121};
  int _now = 0;
  std::map<unsigned short, int> _lastRequestFrom;
  std::deque<Late> _late;
  int _sentToAPortUsedAgain = 0;
};

struct Tally {
  int right = 0;
  int none = 0;
  int wrong = 0;
  int sentToAPortUsedAgain = 0;
};

// Goes off line with handles that count up; the DCH answers each with the handle as its status.
Tally tallyOfRequests(bool isStrict) {
  setenv("ZOR0_STRICT_ANSWERS", isStrict ? "Y" : "N", 1);
  setenv("ZORA_DCH_UDP_SOCKETS_IN_POOL", std::to_string(poolSockets).c_str(), 1);
  BadNetwork network(isStrict);
  ZORA_Long handle = 0;
  SteppedDch dch([&](const std::string&, unsigned short port) {
    return network.carry(statusAnswer(handle), port);
  });
  Tally tally;
  for (handle = 1; handle <= requestCount; ++handle) {
    dch.expectRequest();
    ZORA_Long status = -1;
    const int result = dp_offline(&status, handle);
    if (result == 1 && status == 5)
      ++tally.none;
    else
      ++(result == 0 && status == handle ? tally.right : tally.wrong);
  }
  tally.sentToAPortUsedAgain = network.sentToAPortUsedAgain();
  return tally;
}

TEST(BadNetworkTest, GivesNoWrongAnswerWithStrictAnswers) {
  const Tally tally = tallyOfRequests(true);
  EXPECT_EQ(tally.wrong, 0);
  EXPECT_GT(tally.right, requestCount * 6 / 10);
  EXPECT_GT(tally.none, requestCount * 2 / 10) << "as many were lost or late";
  EXPECT_LT(tally.sentToAPortUsedAgain, 100) << "each request has a port of its own";
}

TEST(BadNetworkTest, GivesWrongAnswersWithoutThem) {
  const Tally tally = tallyOfRequests(false);
  EXPECT_GT(tally.wrong, requestCount / 2);
}

}  // namespace
