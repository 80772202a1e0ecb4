// Rows of other sites that wait for the handles of their sources, and a store that the fuzzer
// decides on: it is slow, does not keep what it is asked, and has no room. Whatever it does, the
// rows of each source come in their order, none comes twice, no two sources have one handle and
// none has two; bounds hold, and nothing waits for ever.
#include "dch/core/remote_handles.h"

#include <algorithm>
#include <deque>
#include <map>
#include <set>
#include <string>

#include "fuzz/support/input.h"
#include "fuzz/support/require.h"

namespace {

using fuzz::require;

// What it has for good, as a store's file does.
class Store {
 public:
  ZORA_Long handleOf(const std::string& key, bool hasRoom) {
    const auto known = _handles.find(key);
    if (known != _handles.end()) return known->second;
    if (!hasRoom) return 0;
    return _handles[key] = static_cast<ZORA_Long>(_handles.size() + 1);
  }

 private:
  std::map<std::string, ZORA_Long> _handles;
};

std::string keyOf(const dch::RemoteNames& names) {
  std::string key;
  dch::makeKey(names, &key);
  return key;
}

class Run {
 public:
  explicit Run(const fuzz::Input& input)
      : _input(input),
        _limits{_input.takeByte() % 8u + 1, _input.takeByte() % 64u, _input.takeByte() * 8u,
                _input.takeByte() % 9u + 1},
        _handles(_limits) {}

  bool atEnd() const { return _input.atEnd(); }
  void step();
  void check() const;
  void beQuiet();

 private:
  struct Held {
    std::size_t rows = 0;
    std::size_t bytes = 0;
  };

  void receive();
  void ask();
  void conclude();
  void push(const dch::LiveRow& row, ZORA_Long handle);
  static std::size_t bytesOf(const dch::LiveRow& row) {
    return row.site.size() + row.application.size() + row.group.size() + row.source.size() +
           row.message.size();
  }

  fuzz::Input _input;
  const dch::RemoteHandles::Limits _limits;
  dch::RemoteHandles _handles;
  Store _store;
  std::deque<dch::RemoteSourceSeen> _asked;
  std::set<std::string> _areAsked;
  std::map<std::string, std::deque<std::string>> _waiting;  // messages by the keys of their sources
  std::map<std::string, Held> _held;                        // by sites
  std::map<std::string, unsigned> _received;                // by sources
  std::map<std::string, unsigned> _pushed;
  std::map<std::string, ZORA_Long> _handleOf;
  std::map<ZORA_Long, std::string> _sourceOf;
};

void Run::step() {
  switch (_input.takeByte() % 4) {
    case 0:
    case 1:
      return receive();
    case 2:
      return ask();
    default:
      return conclude();
  }
}

void Run::receive() {
  const unsigned which = _input.takeByte();
  dch::LiveRow row{"site" + std::to_string(which % 3), which & 0x40 ? "A" : "", "g",
                   std::to_string(which / 3 % 8), ""};
  const std::string key = keyOf(dch::namesOf(row));
  const unsigned number = ++_received[key];
  row.message = std::to_string(number) + std::string(1 + _input.takeByte() / 4, '.');
  const auto handle = _handles.find(dch::namesOf(row));
  if (handle) {
    require(!_waiting.contains(key), "no row goes before those that wait");
    require(*handle == _store.handleOf(key, false), "the handle that the store has given");
    if (*handle != 0) push(row, *handle);
    return;
  }
  Held& held = _held[row.site];
  std::size_t rows = 0, bytes = 0;
  for (const auto& [site, each] : _held) rows += each.rows, bytes += each.bytes;
  const std::size_t size = bytesOf(row);
  const bool hasRoom = rows < _limits.rows && held.rows < _limits.rows / 4 &&
                       bytes + size <= _limits.bytes && held.bytes + size <= _limits.bytes / 4;
  const std::string message = row.message;
  require(_handles.hold(std::move(row)) == hasRoom, "room within the limits");
  if (!hasRoom) return;
  _waiting[key].push_back(message);
  ++held.rows;
  held.bytes += size;
}

void Run::ask() {
  auto asked = _handles.toAsk();
  if (!asked) return;
  const std::string key = keyOf(dch::namesOf(*asked));
  require(_waiting.contains(key), "one of which a row waits");
  require(_areAsked.insert(key).second, "each once");
  _asked.push_back(*std::move(asked));
}

void Run::conclude() {
  if (_asked.empty()) return;
  dch::RemoteSourceSeen change = std::move(_asked.front());
  _asked.pop_front();
  const std::string key = keyOf(dch::namesOf(change));
  const unsigned fate = _input.takeByte() % 4;
  const bool isKept = fate != 0;
  if (isKept) change.handle = _store.handleOf(key, fate != 1);
  const std::vector<dch::LiveRow> rows = _handles.concluded(change, isKept);
  std::deque<std::string> messages = std::move(_waiting[key]);
  _waiting.erase(key);
  _areAsked.erase(key);
  require(rows.size() == messages.size(), "all rows that waited");
  for (const dch::LiveRow& row : rows) {
    require(keyOf(dch::namesOf(row)) == key && row.message == messages.front(), "in their order");
    messages.pop_front();
    Held& held = _held[row.site];
    --held.rows;
    held.bytes -= bytesOf(row);
    if (change.handle != 0) push(row, change.handle);
  }
}

void Run::push(const dch::LiveRow& row, ZORA_Long handle) {
  const std::string key = keyOf(dch::namesOf(row));
  const auto number = static_cast<unsigned>(std::stoul(row.message));
  require(number > _pushed[key], "the rows of a source in their order, each once");
  _pushed[key] = number;
  require(_handleOf.emplace(key, handle).first->second == handle, "a source has one handle");
  require(_sourceOf.emplace(handle, key).first->second == key, "a handle is of one source");
}

void Run::check() const {
  std::size_t rows = 0;
  for (const auto& [key, messages] : _waiting) rows += messages.size();
  require(_handles.waiting() == rows, "so many wait");
  require(_asked.size() <= _limits.asked, "so many are asked for");
  std::map<std::string, std::size_t> ofSites;
  for (const dch::RemoteSourceSeen& each : _asked) ++ofSites[each.site];
  for (const auto& [site, count] : ofSites)
    require(count <= std::max<std::size_t>(_limits.asked / 4, 1), "a site has its share");
}

void Run::beQuiet() {
  while (!_waiting.empty()) {
    const std::size_t before = _asked.size();
    ask();
    if (_asked.size() > before) continue;
    require(!_asked.empty(), "all that wait are asked for");
    conclude();
    check();
  }
  require(!_handles.toAsk(), "nothing is left");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t count) {
  Run run({bytes, count});
  run.check();
  while (!run.atEnd()) {
    run.step();
    run.check();
  }
  run.beQuiet();
  return 0;
}
