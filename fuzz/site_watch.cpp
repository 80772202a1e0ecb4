// Servers of some sites, some of them of one name, that say of themselves what the rules have them
// say, and a network that the fuzzer decides on: it loses, doubles and delays what they say, and is
// cut into parts. Servers die, stop, are restarted and cloned, lose their connection and stand
// still. When all is quiet at last, exactly one server of each name uses it, and everybody knows
// who is there.
#include "dch/link/site_watch.h"

#include <array>
#include <list>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "fuzz/support/input.h"
#include "fuzz/support/require.h"

namespace {

using fuzz::require;
using std::chrono::milliseconds;
using std::chrono::seconds;
using Heard = dch::SiteWatch::Heard;
using State = dch::AliveMessage::State;
using TimePoint = dch::SiteWatch::TimePoint;

constexpr const char* siteNames[] = {"west", "east", "north"};
constexpr std::size_t mostServers = 6, mostOnTheirWay = 64;
constexpr milliseconds timeStep{500};
constexpr seconds quietStep{1};

struct Server {
  Server(std::string itsName, const dch::Epoch& itsRun)
      : name(std::move(itsName)), run(itsRun), watch(name, run) {}

  // What is known of a site, as it was told.
  struct Known {
    bool isReachable = true;
    TimePoint heardAt;
    std::set<dch::Epoch, bool (*)(const dch::Epoch&, const dch::Epoch&)> runs{
        [](const dch::Epoch& a, const dch::Epoch& b) { return a.bytes < b.bytes; }};
  };

  std::string name;
  dch::Epoch run;
  dch::SiteWatch watch;
  std::uint64_t count = 0;
  bool isConnected = true;
  bool isStill = false;
  unsigned part = 0;  // of the network
  TimePoint speaksAt, looksAt;
  std::optional<TimePoint> answeredAt;
  std::map<std::string, Known> known;
  // Of those that have its name: what was heard of a run, and when something new was.
  struct Rival {
    std::set<std::uint64_t> counts;
    TimePoint heardAt;
  };
  std::map<std::array<std::uint8_t, 16>, Rival> rivals;
};

struct OnItsWay {
  dch::Epoch to;
  std::string site;
  dch::AliveMessage message;
};

class Run {
 public:
  explicit Run(const fuzz::Input& input) : _input(input) { start(siteNames[0]); }

  bool atEnd() const { return _input.atEnd(); }
  void step();
  void beQuiet();

 private:
  using Servers = std::list<Server>;

  Servers::iterator pickServer();
  void start(const std::string& name);
  void restart(Servers::iterator server);
  void end(Servers::iterator server);
  void cut();
  void connectOrDisconnect();
  void speak(Server& server, bool isStopping = false);
  void deliver();
  void take(Server& server, const std::string& site, const dch::AliveMessage& message);
  void checkRival(Server& server, const dch::AliveMessage& message, Heard heard, bool wasAside);
  void pass(milliseconds time);
  void passQuietly(seconds time);
  void turn(Server& server);
  void check(const Server& server);
  void checkThatAllIsWell();

  fuzz::Input _input;
  TimePoint _now{seconds(1'000)};
  std::uint8_t _runs = 0;
  Servers _servers;
  std::vector<OnItsWay> _onTheirWay;
};

void Run::step() {
  const unsigned choice = _input.takeByte();
  switch (choice % 10) {
    case 0:
      return start(siteNames[(choice >> 4) % std::size(siteNames)]);
    case 1:
      if (!_servers.empty()) end(pickServer());
      return;
    case 2:
      if (!_servers.empty()) restart(pickServer());
      return;
    case 3:
      return cut();
    case 4:
      return connectOrDisconnect();
    case 5:
      if (!_servers.empty()) {
        Server& server = *pickServer();
        server.isStill = !server.isStill;
      }
      return;
    case 6:
    case 7:
      return deliver();
    default:
      return pass(timeStep * (1 + (choice >> 4) * (choice % 10 == 8 ? 1 : 8)));
  }
}

Run::Servers::iterator Run::pickServer() {
  return std::next(_servers.begin(),
                   static_cast<std::ptrdiff_t>(_input.takeByte() % _servers.size()));
}

void Run::start(const std::string& name) {
  if (_servers.size() == mostServers || _runs == 0xff) return;
  dch::Epoch run;
  run.bytes[0] = static_cast<std::uint8_t>(_input.takeByte());
  run.bytes[1] = ++_runs;
  Server& server = _servers.emplace_back(name, run);
  server.watch.connected(_now);
  server.speaksAt = server.looksAt = _now;
}

void Run::end(Servers::iterator server) {
  const bool saysSo = (_input.takeByte() & 1) != 0;
  if (saysSo && server->isConnected && !server->isStill) speak(*server, true);
  _servers.erase(server);
}

void Run::restart(Servers::iterator server) {
  const std::string name = server->name;
  end(server);
  start(name);
}

// One server goes to another part of the network, or comes back.
void Run::cut() {
  if (_servers.empty()) return;
  Server& server = *pickServer();
  server.part = _input.takeByte() % 2;
}

void Run::connectOrDisconnect() {
  if (_servers.empty()) return;
  Server& server = *pickServer();
  server.isConnected = !server.isConnected;
  if (server.isConnected) server.watch.connected(_now);
}

void Run::speak(Server& server, bool isStopping) {
  const dch::SiteWatch::Speech speech = server.watch.speak(_now);
  require((speech.state == State::aside) == server.watch.isAside(), "it says that it is aside");
  require(!server.watch.hasRival() || speech.hears, "it says whom it hears");
  require(speech.hears != server.run, "it does not hear itself");
  dch::AliveMessage message{.run = server.run, .count = ++server.count, .version = "4.10.0"};
  message.period = speech.period;
  message.state = isStopping ? State::stopping : speech.state;
  message.hears = speech.hears;
  server.speaksAt = _now + speech.period;
  for (const Server& other : _servers) {
    const bool isHeard = &other != &server && other.isConnected && other.part == server.part;
    if (isHeard && _onTheirWay.size() < mostOnTheirWay)
      _onTheirWay.push_back({other.run, server.name, message});
  }
}

// Any that is on its way, once, twice or never.
void Run::deliver() {
  if (_onTheirWay.empty()) return;
  const unsigned choice = _input.takeByte();
  const auto place =
      _onTheirWay.begin() + static_cast<std::ptrdiff_t>((choice & 0x3f) % _onTheirWay.size());
  const OnItsWay each = *place;
  const bool comesAgain = (choice >> 6) == 1, isLost = (choice >> 6) == 2;
  if (!comesAgain) _onTheirWay.erase(place);
  if (isLost) return;
  for (Server& server : _servers)
    if (server.run == each.to && server.isConnected && !server.isStill)
      take(server, each.site, each.message);
}

void Run::take(Server& server, const std::string& site, const dch::AliveMessage& message) {
  const bool wasAside = server.watch.isAside();
  const Heard heard = server.watch.heard(site, message, _now);
  const bool isOther = site != server.name;
  require(!isOther || wasAside == server.watch.isAside(), "others do not matter to the name");
  if (!isOther) return checkRival(server, message, heard, wasAside);
  require((heard == Heard::aside) == (message.state == State::aside), "who stands aside");
  if (heard == Heard::old || heard == Heard::aside) return check(server);
  const bool isKnown = server.known.contains(site);
  Server::Known& known = server.known[site];
  require(isKnown == (heard != Heard::appeared), "a site appears once");
  require((heard == Heard::isBack) == !known.isReachable, "a silent site is back");
  const bool isNewRun = known.runs.insert(message.run).second;
  require(!isNewRun || heard != Heard::known, "a new run is no known one");
  known.isReachable = true;
  known.heardAt = _now;
  check(server);
}

void Run::checkRival(Server& server, const dch::AliveMessage& message, Heard heard, bool wasAside) {
  require(heard == Heard::otherOfThisName || heard == Heard::old, "this site's own name");
  const bool standsAside = !wasAside && server.watch.isAside();
  require(!standsAside || server.watch.hasRival(), "it stands aside for one that hears it");
  Server::Rival& rival = server.rivals[message.run.bytes];
  const bool isForgotten = _now - rival.heardAt >= dch::SiteWatch::silentAfter;
  if (isForgotten) rival.counts.clear();
  const bool wasHeard = !rival.counts.insert(message.count).second;
  require(!wasHeard || heard == Heard::old, "what was heard is old");
  if (heard == Heard::otherOfThisName) rival.heardAt = _now;
  check(server);
}

// What a server does at this moment.
void Run::turn(Server& server) {
  if (server.isStill) return;
  if (_now >= server.looksAt) {
    const bool wasAside = server.watch.isAside();
    for (const std::string& each : server.watch.fallenSilent(_now, server.isConnected)) {
      Server::Known& known = server.known.at(each);
      require(known.isReachable, "a site becomes silent once");
      require(_now - known.heardAt >= dch::SiteWatch::silentAfter, "a restart is no silence");
      known.isReachable = false;
    }
    require(wasAside || !server.watch.isAside(), "nobody stands aside by himself");
    server.looksAt = _now + seconds(1);
    check(server);
  }
  if (!server.isConnected) return;
  const bool isAsked = server.watch.mustSpeakNow(_now);
  if (isAsked) {
    require(!server.answeredAt || _now - *server.answeredAt >= seconds(1), "once a second at most");
    server.answeredAt = _now;
  }
  if (isAsked || _now >= server.speaksAt) speak(server);
}

void Run::pass(milliseconds time) {
  for (milliseconds passed{0}; passed < time; passed += timeStep) {
    _now += timeStep;
    for (Server& each : _servers) turn(each);
  }
}

// All that is said is heard at once.
void Run::passQuietly(seconds time) {
  for (seconds passed{0}; passed < time; passed += quietStep) {
    _now += quietStep;
    for (Server& each : _servers) turn(each);
    for (const OnItsWay& each : std::exchange(_onTheirWay, {}))
      for (Server& server : _servers)
        if (server.run == each.to) take(server, each.site, each.message);
  }
}

void Run::check(const Server& server) {
  const auto states = server.watch.states();
  require(states.size() == server.known.size(), "all that have appeared");
  auto known = server.known.begin();
  for (const dch::SiteState& each : states) {
    require(each.name == known->first, "by name");
    require(each.isReachable == known->second.isReachable, "who is reachable");
    require(each.isAlone == server.watch.isAlone(each.name), "who is alone");
    require(!each.isAlone || each.isReachable, "nobody silent is alone");
    ++known;
  }
  require(!server.watch.isAlone(server.name), "of itself it says nothing");
}

void Run::beQuiet() {
  for (Server& each : _servers) {
    each.isStill = false;
    each.part = 0;
    if (!each.isConnected) each.watch.connected(_now);
    each.isConnected = true;
  }
  // One that died asks for as long as it takes to know it.
  passQuietly(seconds(120));
  checkThatAllIsWell();
  std::vector<bool> aside;
  for (const Server& each : _servers) aside.push_back(each.watch.isAside());
  passQuietly(seconds(30));
  checkThatAllIsWell();
  std::size_t place = 0;
  for (const Server& each : _servers)
    require(each.watch.isAside() == aside[place++], "it stays as it is");
}

void Run::checkThatAllIsWell() {
  std::map<std::string, unsigned> servers, users;
  for (const Server& each : _servers) {
    ++servers[each.name];
    if (!each.watch.isAside()) ++users[each.name];
  }
  for (const auto& [name, count] : servers) require(users[name] == 1, "one of a name uses it");
  for (const Server& each : _servers) {
    require(each.watch.hasRival() == (servers[each.name] > 1), "who has a rival");
    for (const dch::SiteState& state : each.watch.states()) {
      const bool isThere = servers.contains(state.name);
      require(state.isReachable == isThere, "who is there");
      require(state.isAlone == (isThere && servers[state.name] == 1), "who is alone at last");
    }
    for (const auto& [name, count] : servers)
      require(name == each.name || each.known.contains(name), "all are known");
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t count) {
  Run run({bytes, count});
  while (!run.atEnd()) run.step();
  run.beQuiet();
  return 0;
}
