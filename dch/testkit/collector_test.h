// collector_test.h: a hub's collector of rows, between a server of NATS and a store.
#ifndef DCH_TESTKIT_COLLECTOR_TEST_H
#define DCH_TESTKIT_COLLECTOR_TEST_H

#include <algorithm>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "dch/link/row_collector.h"
#include "dch/testkit/jet_stream.h"
#include "dch/testkit/link_test.h"
#include "dch/testkit/nats_server.h"
#include "dch/testkit/remote_test.h"
#include "dch/testkit/scripted_site.h"
#include "tests/support/wait_until.h"

namespace dch::testkit {

using Lines = std::vector<std::string>;
using Question = std::vector<RowName>;

// A hub "hub" and its store; the test keeps what it collects, when it looks.
class CollectorTest : public RemoteTest {
 protected:
  explicit CollectorTest(const std::string& more = {}) : _nats({.more = more}) { start(); }
  ~CollectorTest() override { _collector.reset(); }

  void makeStream() { askJetStream(_nats.url(), "CREATE"); }
  void collect(const std::optional<LinkUser>& user = {}) {
    _collector.reset();
    _collector.emplace(
        LinkSettings{.servers = {_nats.url()}, .site = "hub", .user = user},
        [this] { return _store->places(); }, [] {}, _linkLog);
  }

  // The collector hears, again and again, that this one is the only server of its name.
  void sayIsAlone(const std::string& site, const Epoch& run) {
    _sites = std::make_shared<const std::vector<SiteState>>(
        1, SiteState{.name = site, .run = run, .isReachable = true, .isAlone = true});
  }

  // What is there to be kept, as "SITE ROW".
  Lines take() {
    if (_sites != nullptr) _collector->setSites(_sites);
    Lines lines;
    for (Change& each : _collector->take()) {
      if (const auto* const rows = std::get_if<RemoteRows>(&each))
        for (const RemoteRow& row : rows->rows) lines.push_back(rows->site + " " + row.message);
      _taken.push_back(std::move(each));
    }
    return lines;
  }
  void keepTaken() {
    for (Change& each : _taken) ASSERT_TRUE(keep(std::move(each)));
    if (!_taken.empty()) _collector->taken();
    _taken.clear();
  }
  // Of one site, in the order in which they were kept.
  Lines kept(const std::string& site) {
    for (std::string& each : take()) _kept.push_back(std::move(each));
    keepTaken();
    Lines found;
    for (const std::string& each : _kept)
      if (each.starts_with(site + " ")) found.push_back(each.substr(site.size() + 1));
    return found;
  }
  bool waitUntilKept(const std::string& site, std::size_t rows) {
    return waitUntil([&] { return kept(site).size() >= rows; }, linkPatience);
  }
  // Until something is there to be taken that has rows.
  Lines waitForRows() {
    Lines rows;
    waitUntil(
        [&] {
          rows = take();
          if (rows.empty()) keepTaken();
          return !rows.empty();
        },
        linkPatience);
    return rows;
  }
  // Keeps what comes meanwhile.
  template <class Condition>
  bool waitUntilKeeping(Condition condition) {
    return waitUntil(
        [&] {
          kept("");
          return condition();
        },
        linkPatience);
  }
  static bool isAskedBehind(const ScriptedSite& site, std::int64_t number) {
    const auto questions = site.questions();
    return std::any_of(questions.begin(), questions.end(),
                       [&](const Question& each) { return each == Question{site.nameOf(number)}; });
  }

  std::size_t timesTold(const std::string& text) {
    for (std::string& each : _linkLog.takeLines()) _told.push_back(std::move(each));
    return static_cast<std::size_t>(std::count_if(
        _told.begin(), _told.end(),
        [&](const std::string& each) { return each.find(text) != std::string::npos; }));
  }
  CollectorFigures figures() const { return _collector->figures(); }

  NatsServer _nats;
  LinkLog _linkLog;
  std::shared_ptr<const std::vector<SiteState>> _sites;
  std::vector<Change> _taken;
  Lines _kept;
  Lines _told;
  std::optional<RowCollector> _collector;
};

}  // namespace dch::testkit

#endif  // DCH_TESTKIT_COLLECTOR_TEST_H
