// random_changes.h: changes as a server with much to do makes them, each good after those before
// it.
#ifndef DCH_TESTKIT_RANDOM_CHANGES_H
#define DCH_TESTKIT_RANDOM_CHANGES_H

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "dch/core/change.h"
#include "dch/testkit/messages.h"
#include "dch/testkit/registry_changes.h"
#include "dch/testkit/remote_rows.h"

namespace dch::testkit {

// The same seed makes the same changes. Row number N has the time N * timeStep; rows of other sites
// that come together count as one.
class RandomChanges {
 public:
  explicit RandomChanges(std::uint32_t seed, Time timeStep = 1)
      : _random(seed), _timeStep(timeStep) {}

  std::vector<Change> make(std::size_t count) {
    std::vector<Change> changes;
    while (changes.size() < count) {
      const unsigned kind = below(100);
      if (kind < 6)
        changes.push_back(registration());
      else if (kind < 8 && unregister(&changes))
        continue;
      else if (kind < 16)
        goOnline(&changes);
      else if (kind < 19)
        goOffline(&changes);
      else if (kind < 22)
        changes.push_back(deferral());
      else if (kind < 26)
        actOn(&changes);
      else if (kind < 28)
        changes.push_back(RowsPublished{_rowCount});
      else if (kind < 36)
        changes.push_back(_sites.make(&_random, ++_rowCount * _timeStep));
      else if (kind < 44)
        changes.push_back(sourceSeen());
      else
        sendRow(&changes);
    }
    return changes;
  }

 private:
  struct KnownSource {
    std::string application, group;
    bool isOnline;
  };

  unsigned below(unsigned end) { return static_cast<unsigned>(_random() % end); }

  static std::string applicationName(unsigned number) { return "APPL" + std::to_string(number); }

  Change registration() {
    const std::string name = applicationName(below(4));
    std::string text = "appl:" + name + ",KEY;";
    std::vector<std::string> groups;
    for (unsigned group = 0; group < 3; ++group) {
      if (group != 0 && below(3) == 0) continue;
      groups.push_back("g" + std::to_string(group));
      text += "group:" + groups.back() + ";attr:a,N,4;";
      for (unsigned attribute = 0; attribute < 12; ++attribute)
        if (below(4) == 0) text += "attr:x" + std::to_string(attribute) + ",D,8;";
    }
    _registered[name] = groups;
    takeOffline(name);
    return Registered{registrationOf(text)};
  }

  bool unregister(std::vector<Change>* changes) {
    const std::string name = applicationName(below(4));
    if (_registered.erase(name) == 0) return false;
    takeOffline(name);
    changes->push_back(Unregistered{name});
    return true;
  }

  // Those whose group is registered no more.
  void takeOffline(const std::string& application) {
    for (KnownSource& source : _sources)
      if (source.application == application && !isRegistered(source)) source.isOnline = false;
  }

  bool isRegistered(const KnownSource& source) {
    const auto known = _registered.find(source.application);
    return known != _registered.end() && std::find(known->second.begin(), known->second.end(),
                                                   source.group) != known->second.end();
  }

  void goOnline(std::vector<Change>* changes) {
    if (below(3) != 0) {
      for (std::size_t index = 0; index < _sources.size(); ++index)
        if (KnownSource& source = _sources[index]; !source.isOnline && isRegistered(source)) {
          source.isOnline = true;
          changes->push_back(online(index));
          return;
        }
      return;
    }
    const auto known = _registered.find(applicationName(below(4)));
    if (known == _registered.end()) return;
    const std::string& group = known->second[below(static_cast<unsigned>(known->second.size()))];
    _sources.push_back({known->first, group, true});
    changes->push_back(online(_sources.size() - 1));
  }

  Change online(std::size_t index) {
    return WentOnline{_sources[index].application, _sources[index].group,
                      "source" + std::to_string(index), static_cast<ZORA_Long>(index + 1)};
  }

  void goOffline(std::vector<Change>* changes) {
    if (_sources.empty()) return;
    const std::size_t index = below(static_cast<unsigned>(_sources.size()));
    if (!std::exchange(_sources[index].isOnline, false)) return;
    changes->push_back(WentOffline{static_cast<ZORA_Long>(index + 1)});
  }

  Change deferral() {
    Deferred change;
    change.deferral.push_back({static_cast<ZORA_Long>(below(1000)), 1, 2, "KEY", "TABLE", "node"});
    return change;
  }

  void actOn(std::vector<Change>* changes) {
    const auto id = static_cast<ZORA_Long>(below(5) + 1);
    if (bool& isRunning = _isRunning[id]; isRunning) {
      isRunning = false;
      changes->push_back(ActionEnded{id, 2, static_cast<ZORA_Long>(below(100))});
    } else {
      isRunning = true;
      changes->push_back(ActionStarted{id, "action", "operator", 1});
    }
  }

  // Some are of sources that rows come of, and some come again.
  Change sourceSeen() {
    return RemoteSourceSeen{"site" + std::to_string(below(3)), applicationName(below(2)),
                            "g" + std::to_string(below(3)), "source" + std::to_string(below(6))};
  }

  void sendRow(std::vector<Change>* changes) {
    if (_sources.empty()) return;
    const auto handle = static_cast<ZORA_Long>(below(static_cast<unsigned>(_sources.size())) + 1);
    std::string number(4, '\0');
    const std::int32_t value = static_cast<std::int32_t>(++_rowCount);
    std::memcpy(number.data(), &value, sizeof value);
    std::vector<Value> values = {{"a", 'N', number}};
    if (below(2) == 0) values.push_back({"x3", 'D', std::string("text\0", 5)});
    changes->push_back(Row{handle, _rowCount * _timeStep, dataMessage(handle, values)});
  }

  std::mt19937 _random;
  const Time _timeStep;
  Time _rowCount = 0;
  std::map<std::string, std::vector<std::string>> _registered;
  std::vector<KnownSource> _sources;
  std::map<ZORA_Long, bool> _isRunning;
  RandomSites _sites;
};

}  // namespace dch::testkit

#endif  // DCH_TESTKIT_RANDOM_CHANGES_H
