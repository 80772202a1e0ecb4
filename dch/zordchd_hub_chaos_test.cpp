// Two sites, a hub and their NATS servers, one or a cluster, are killed, held up and cut off from
// each other again and again while many send: in the end the hub has each row that was acknowledged
// once, those of a source in their order. ZORD410_HUB_HARMS sets how often, ZORD410_SEED what
// happens when.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <iostream>
#include <list>
#include <map>
#include <random>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "dch/testkit/jet_stream.h"
#include "dch/testkit/kept_rows.h"
#include "dch/testkit/link_test.h"
#include "dch/testkit/linked_server.h"
#include "dch/testkit/nats_cluster.h"
#include "dch/testkit/numbered_sender.h"
#include "dch/testkit/store_test.h"
#include "tests/support/variables.h"
#include "tests/support/wait_until.h"

namespace dch::testkit {
namespace {

using std::chrono::milliseconds;

// Applications that each server has: their groups have rows of all sites.
constexpr int senderCount = 2;

constexpr unsigned mostAtOnce = 3;

// A server and those who send to it.
struct Party {
  Party(const std::string& site, const std::vector<int>& natsPorts,
        LinkedServer::Keeps keeps = LinkedServer::Keeps::itsOwnRows)
      : server(site, natsPorts, keeps) {}

  LinkedServer server;
  std::list<NumberedSender> senders{};
};

class ZordchdHubChaosTest : public ::testing::Test {
 protected:
  explicit ZordchdHubChaosTest(std::size_t nodes = 1) : _nats(nodes) {
    std::cout << "ZORD410_SEED=" << _seed << '\n';
  }

  void TearDown() override {
    for (Party* const party : _parties) party->senders.clear();
  }

  void beginAll() {
    for (Party* const party : _parties) {
      party->server.begin();
      for (int number = 0; number < senderCount; ++number)
        party->senders.emplace_back(
            number,
            number == 0 ? NumberedSender::Carrier::stream : NumberedSender::Carrier::datagrams,
            party->server.port(), party->server.lives(), _random());
    }
  }

  unsigned below(unsigned end) { return static_cast<unsigned>(_random() % end); }

  // Now and then longer than anybody waits for an answer.
  milliseconds someTime() {
    return below(6) == 0 ? milliseconds(2'000 + below(5'000)) : milliseconds(below(600));
  }

  // Returns what it did.
  std::string harm() {
    const bool isFirst = !std::exchange(_isHarmed, true);
    if (below(4) == 0) return harmNats(isFirst);
    Party& party = *_parties[below(static_cast<unsigned>(_parties.size()))];
    return party.server.site() + (below(2) == 0 ? harmProgram(&party) : harmGate(&party));
  }
  std::string harmProgram(Party* party) {
    if (below(3) == 0) {
      party->server.standStill();
      return " stands still";
    }
    party->server.die();
    return " dies";
  }
  std::string harmGate(Party* party) {
    constexpr struct {
      void (TcpGate::*action)();
      const char* text;
    } harms[] = {{&TcpGate::cut, " is cut off"},
                 {&TcpGate::hold, " hears and says nothing"},
                 {&TcpGate::holdAnswers, " hears nothing"}};
    const auto& chosen = harms[below(3)];
    const bool isAll = below(2) == 0;
    std::string text = chosen.text;
    for (std::size_t node = 0; node < _nats.size(); ++node) {
      if (_nats.isGone(node) || (!isAll && below(2) == 0)) continue;  // that one is cut off already
      (party->server.gate(node).*chosen.action)();
      text += " node " + std::to_string(node);
    }
    return text;
  }
  std::string harmNats(bool isFirst) {
    const std::size_t node = below(static_cast<unsigned>(_nats.size()));
    const std::string name = "node " + std::to_string(node);
    if (_nats.isGone(node)) return name + " is gone already";
    switch (below(_nats.size() > 1 ? 6 : 4)) {
      case 0:
        _nats.standStill(node);
        return name + " stands still";
      case 1:
        if (!isFirst) return "the stream stays";  // there may be none
        askJetStream(_nats.url(node), "DELETE");
        return "the stream is deleted";
      case 4:
        _nats.cutOff(node);
        return name + " is cut off from the others";
      case 5:
        _nats.holdUp(node);
        return name + " and the others do not hear each other";
      default:
        // Its port may become that of another test's server.
        for (Party* const party : _parties) party->server.gate(node).cut();
        _nats.kill(node);
        return name + " dies";
    }
  }

  std::string mend() {
    std::string text = "all goes on";
    for (Party* const party : _parties) party->server.goOn();
    const std::size_t node = below(static_cast<unsigned>(_nats.size()));
    const bool isEmpty = _nats.isGone(node) && below(3) == 0;
    if (isEmpty) text += ", node " + std::to_string(node) + " with an empty store";
    isEmpty ? _nats.mend(node) : _nats.mend();
    for (Party* const party : _parties) {
      const bool isLost = below(2) == 0;  // what was held up, or it comes late
      for (std::size_t each = 0; each < _nats.size(); ++each) {
        TcpGate& gate = party->server.gate(each);
        gate.leadTo(_nats.port(each));
        if (isLost) gate.cut();
        gate.pass();
      }
      if (!party->server.isRunning()) party->server.begin();
    }
    _isHarmed = false;
    return text;
  }

  void walk(unsigned harms) {
    const auto start = std::chrono::steady_clock::now();
    const auto say = [&](const std::string& what) {
      const auto now = std::chrono::steady_clock::now();
      std::cout << std::chrono::duration_cast<milliseconds>(now - start).count() << " ms: " << what
                << '\n';
    };
    unsigned atOnce = 0;
    for (unsigned count = 1; count <= harms; ++count) {
      say(harm());
      std::this_thread::sleep_for(someTime());
      // Those who wait for a server that stands still do not wait for ever.
      if (++atOnce < mostAtOnce && below(3) == 0) continue;
      atOnce = 0;
      say(mend());
      std::this_thread::sleep_for(someTime());
    }
    say(mend());
  }

  // Waits until each sender has had another row acknowledged.
  bool allSend() {
    std::map<const NumberedSender*, std::uint64_t> before;
    for (Party* const party : _parties)
      for (const NumberedSender& each : party->senders) before[&each] = each.rows();
    return waitUntil(
        [&] {
          return std::all_of(before.begin(), before.end(), [](const auto& each) {
            return each.first->rows() > each.second || !each.first->failure().empty();
          });
        },
        linkPatience);
  }
  std::uint64_t stopSenders() {
    std::uint64_t rows = 0;
    for (Party* const party : _parties)
      for (NumberedSender& sender : party->senders) {
        sender.stop();
        EXPECT_EQ(sender.failure(), "") << party->server.site();
        rows += sender.rows();
      }
    return rows;
  }

  static std::string viewOf(const NumberedSender& sender) {
    return sender.book().application + ".rows";
  }

  // Of a site, in its file and in the hub's.
  static std::int64_t countAtSite(const Party& party) {
    std::int64_t count = 0;
    for (const std::string& table : rowTables(party.server.path()))
      count += std::stoll(query(party.server.path(), "SELECT count(*) FROM " + table));
    return count;
  }
  std::int64_t countAtHub(const Party& party) const {
    std::int64_t count = 0;
    for (const NumberedSender& sender : party.senders) {
      const std::string text =
          query(_hub.server.path(), "SELECT count(*) FROM \"" + viewOf(sender) +
                                        "\" WHERE site = '" + party.server.site() + "'");
      if (!text.starts_with("error")) count += std::stoll(text);
    }
    return count;
  }
  // There may be very much left: it has a minute for each step.
  bool hubComesTo(const Party& party) const {
    const std::int64_t all = countAtSite(party);
    std::int64_t there = countAtHub(party);
    while (there < all) {
      const auto isMore = [&, before = there] {
        std::this_thread::sleep_for(milliseconds(200));
        return (there = countAtHub(party)) > before;
      };
      if (!waitUntil(isMore, linkPatience)) return false;
    }
    return true;
  }

  // Times and numbers of each source, in the order of the view.
  using Sources = std::map<std::string, std::vector<std::string>>;
  static Sources rowsOf(const std::string& path, const std::string& view,
                        const std::string& condition) {
    std::istringstream lines(
        query(path, "SELECT source, time_us, number FROM \"" + view + "\" WHERE " + condition));
    Sources found;
    std::string source, row;
    while (std::getline(lines, source, '|') && std::getline(lines, row))
      found[source].push_back(row);
    return found;
  }

  // What they wrote last helps to find why something is missing.
  void showWhatTheySay() const {
    for (Party* const party : _parties) {
      constexpr std::size_t shown = 4'000;
      const std::string lines = party->server.process().standardError();
      std::cout << party->server.site() << ":\n"
                << lines.substr(lines.size() - std::min(lines.size(), shown));
    }
  }

  // Of one site, with what its senders were told, and with its own file.
  void compareHubWith(const Party& party, KeptRows* found) const {
    const bool isHub = &party == &_hub;
    const std::string condition = isHub ? "site IS NULL" : "site = '" + party.server.site() + "'";
    for (const NumberedSender& sender : party.senders) {
      const SenderBook book = sender.book();
      compareRows(_hub.server.path(), viewOf(sender), book.sources, found, false, condition);
      if (isHub) continue;
      const Sources here = rowsOf(_hub.server.path(), viewOf(sender), condition);
      const Sources there = rowsOf(party.server.path(), viewOf(sender), "true");
      EXPECT_TRUE(here == there) << viewOf(sender) << " of " << party.server.site();
    }
  }

  // The whole walk.
  void expectEachRowOnce() {
    const unsigned harms = numberFrom("ZORD410_HUB_HARMS", 6);
    beginAll();
    EXPECT_TRUE(allSend());
    walk(harms);
    EXPECT_TRUE(allSend());
    const std::uint64_t sent = stopSenders();
    const auto end = std::chrono::steady_clock::now();
    EXPECT_TRUE(hubComesTo(_west));
    EXPECT_TRUE(hubComesTo(_east));
    const std::chrono::duration<double> behind = std::chrono::steady_clock::now() - end;
    if (HasFailure()) showWhatTheySay();
    EXPECT_EQ(_hub.server.end(), 0);  // what is on its way comes, too
    KeptRows found;
    for (const Party* const party : _parties) compareHubWith(*party, &found);
    EXPECT_EQ(found.acknowledged, sent);
    EXPECT_EQ(found.lost, 0u);
    EXPECT_EQ(found.doubled, 0u);
    EXPECT_EQ(found.outOfOrder, 0u);
    EXPECT_EQ(found.strange, 0u);
    std::cout << harms << " harms: " << sent << " rows acknowledged, " << found.acknowledged
              << " found, " << found.lost << " lost, " << found.doubled << " doubled, "
              << found.outOfOrder << " out of order; " << found.unanswered << " without an answer, "
              << found.repeated << " sent again; complete " << behind.count()
              << " s after the last one\n";
  }

  const unsigned _seed = numberFrom("ZORD410_SEED", std::random_device()());
  std::mt19937 _random{_seed};
  NatsCluster _nats;
  bool _isHarmed = false;
  Party _west{"west", _nats.ports()};
  Party _east{"east", _nats.ports()};
  Party _hub{"hub", _nats.ports(), LinkedServer::Keeps::rowsOfAllSites};
  const std::vector<Party*> _parties{&_west, &_east, &_hub};
};

class ZordchdHubClusterChaosTest : public ZordchdHubChaosTest {
 protected:
  ZordchdHubClusterChaosTest() : ZordchdHubChaosTest(3) {}
};

TEST_F(ZordchdHubChaosTest, TheHubHasEachRowThatWasAcknowledgedOnce) {
  expectEachRowOnce();
}

TEST_F(ZordchdHubClusterChaosTest, TheHubHasEachRowThatWasAcknowledgedOnce) {
  expectEachRowOnce();
}

}  // namespace
}  // namespace dch::testkit
