// Some sites whose providers come and go, and that tell of it, and a network that the fuzzer
// decides on: it loses, doubles, delays and reorders what they say and what they answer. Servers
// die, are restarted and cloned, become silent, and somebody tells lies. What is heard finds no
// room now and then. When all is quiet at last, what was told is what the sites have, and nobody is
// asked any more.
#include "dch/link/site_copies.h"

#include <algorithm>
#include <array>
#include <list>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "dch/link/provider_line.h"
#include "fuzz/support/input.h"
#include "fuzz/support/provider_site.h"
#include "fuzz/support/require.h"

namespace {

using fuzz::require;
using std::chrono::milliseconds;
using std::chrono::seconds;
using TimePoint = dch::SiteCopies::TimePoint;
using News = dch::ProviderNews;
using Lines = fuzz::ProviderLines;
using Server = fuzz::ProviderSite;

constexpr std::array<const char*, 3> siteNames = {"west", "east", "north"};
constexpr std::size_t mostServersOfSite = 2, mostOnTheirWay = 32;
// For each pause to have been, and a minute of quiet behind it.
constexpr seconds quietTime{500}, lastMinute{60}, quietStep{5};

dch::Epoch runOf(unsigned number) {
  dch::Epoch run;
  run.bytes[0] = static_cast<std::uint8_t>(number >> 8);
  run.bytes[1] = static_cast<std::uint8_t>(number);
  return run;
}

// Takes what it is told as the channel does.
class Channel final : public dch::ProviderNewsSink {
 public:
  bool hasRoom(std::string_view) const noexcept override { return isOpen; }
  bool put(News&& news) noexcept override {
    if (isFull) return false;
    Known& site = _sites[news.site];
    if (news.kind == News::Kind::silent)
      std::erase_if(site.lines, [](const auto& each) { return each.first[0] == 'S'; });
    if (news.kind == News::Kind::first) site.confirmed.emplace();
    for (const dch::ProviderFact& fact : news.facts) take(&site, fact);
    if (!news.isAll) return true;
    require(site.confirmed.has_value(), "what ends has begun");
    std::erase_if(site.lines,
                  [&](const auto& each) { return !site.confirmed->contains(each.first); });
    site.confirmed.reset();
    return true;
  }

  const Lines& lines(const std::string& site) { return _sites[site].lines; }

  bool isOpen = true;
  bool isFull = false;

 private:
  struct Known {
    Lines lines;
    std::optional<std::set<std::string>> confirmed;  // of a copy that is under way
  };

  static void take(Known* site, const dch::ProviderFact& fact) {
    const std::string key = dch::providerKey(fact);
    const bool isThere = fact.kind == dch::ProviderFact::Kind::registered ||
                         fact.kind == dch::ProviderFact::Kind::online;
    if (isThere)
      site->lines[key] = dch::providerLine(fact);
    else
      site->lines.erase(key);
    if (site->confirmed) site->confirmed->insert(key);
  }

  std::map<std::string, Known> _sites;
};

struct Answer {
  std::uint64_t question = 0;
  dch::KnownHeader header;
  std::string text;
};

class Run {
 public:
  explicit Run(const fuzz::Input& input) : _input(input) { start(siteNames[0]); }

  bool atEnd() const { return _input.atEnd(); }
  void step();
  void beQuiet();

 private:
  using Servers = std::list<Server>;

  Servers::iterator pickServer(unsigned choice);
  Server* serverOf(const std::string& site, unsigned choice);
  void start(const std::string& site);
  void end(Servers::iterator server);
  void speak(Server* server, bool tellsMuch);
  void deliver(unsigned choice);
  void ask();
  void answer(unsigned choice);
  void deliverAnswer(unsigned choice);
  void lie(unsigned choice);
  void answerWithALie(unsigned choice);
  void pass(milliseconds time);
  void leaveOne(const std::string& site);
  void passQuietly();
  void check();

  fuzz::Input _input;
  TimePoint _now{seconds(1'000)};
  Channel _channel;
  dch::SiteCopies _copies{"own", _channel};
  unsigned _runs = 0;
  Servers _servers;
  std::vector<dch::SiteChanges> _words;  // on their way
  std::vector<dch::SiteCopies::Question> _asked;
  std::vector<Answer> _answers;  // on their way
  std::set<std::uint64_t> _numbers;
  std::set<std::string> _questioned;  // since it was last looked at
  std::set<std::string> _liedAbout;   // sites whose run of now did not say what was heard of it
};

// Takes one of them, or a copy of it.
template <class Each>
std::optional<Each> pick(std::vector<Each>* all, unsigned choice, bool staysThere) {
  if (all->empty()) return std::nullopt;
  const auto place = all->begin() + static_cast<std::ptrdiff_t>(choice % all->size());
  Each each = *place;
  if (!staysThere) all->erase(place);
  return each;
}

void Run::step() {
  const unsigned byte = _input.takeByte(), choice = byte >> 4;
  switch (byte % 16) {
    case 0:
      return start(siteNames.at(choice % siteNames.size()));
    case 1:
      if (!_servers.empty()) end(pickServer(choice));
      return;
    case 2:
    case 3:
    case 4:
      if (!_servers.empty()) pickServer(choice)->change(_input.takeByte());
      return;
    case 5:
    case 6:
      if (!_servers.empty()) speak(&*pickServer(choice / 2), (choice & 1) != 0);
      return;
    case 7:
    case 8:
      return deliver(choice);
    case 9:
      return ask();
    case 10:
      return answer(choice);
    case 11:
      return deliverAnswer(choice);
    case 12:
      _copies.silent(siteNames.at(choice % siteNames.size()), _now);
      return;
    case 13:
      if (choice < 8) return pass(milliseconds(50 << choice));
      return pass(seconds(10 * (choice - 7)));
    case 14:
      _channel.isFull = (choice & 1) != 0;
      _channel.isOpen = (choice & 2) != 0;
      return;
    default:
      return choice < 12 ? lie(choice) : answerWithALie(choice);
  }
}

Run::Servers::iterator Run::pickServer(unsigned choice) {
  return std::next(_servers.begin(), static_cast<std::ptrdiff_t>(choice % _servers.size()));
}

Server* Run::serverOf(const std::string& site, unsigned choice) {
  std::vector<Server*> found;
  for (Server& each : _servers)
    if (each.name() == site) found.push_back(&each);
  return found.empty() ? nullptr : found[choice % found.size()];
}

void Run::start(const std::string& site) {
  const auto others = std::count_if(_servers.begin(), _servers.end(),
                                    [&](const Server& each) { return each.name() == site; });
  if (static_cast<std::size_t>(others) == mostServersOfSite) return;
  _servers.emplace_back(site, runOf(++_runs));
}

void Run::end(Servers::iterator server) {
  _servers.erase(server);
}

void Run::speak(Server* server, bool tellsMuch) {
  dch::SiteChanges words = server->speak(tellsMuch);
  if (_words.size() < mostOnTheirWay) _words.push_back(std::move(words));
}

// The last bits of the choice: it comes again, it is lost.
void Run::deliver(unsigned choice) {
  const bool staysThere = (choice & 3) == 1, isLost = (choice & 3) == 2;
  const auto words = pick(&_words, choice / 4, staysThere);
  if (words && !isLost) _copies.heard(*words, _now);
}

void Run::ask() {
  while (auto question = _copies.nextQuestion(_now)) {
    require(_numbers.insert(question->number).second, "a number is that of one question");
    require(question->site != "own", "it asks others");
    _questioned.insert(question->site);
    if (_asked.size() < mostOnTheirWay) _asked.push_back(*std::move(question));
  }
}

void Run::answer(unsigned choice) {
  const auto question = pick(&_asked, choice / 4, false);
  if (!question) return;
  const Server* const server = serverOf(question->site, choice);
  const auto reply =
      server != nullptr ? server->answer(question->key, 1 + choice % 4) : std::nullopt;
  if (!reply) return _copies.unanswered(question->number, _now);
  if (_answers.size() < mostOnTheirWay)
    _answers.push_back({question->number, reply->header, reply->text});
}

void Run::deliverAnswer(unsigned choice) {
  const bool staysThere = (choice & 3) == 1, isLost = (choice & 3) == 2;
  const auto answer = pick(&_answers, choice / 4, staysThere);
  if (answer && !isLost) _copies.answered(answer->question, answer->header, answer->text, _now);
}

// Somebody else speaks for a site: as its run of now or as another one.
void Run::lie(unsigned choice) {
  dch::SiteChanges words{.site = siteNames.at(choice % siteNames.size()), .run = runOf(0xffff)};
  const Server* const server = serverOf(words.site, _input.takeByte());
  if (server != nullptr && (choice & 4) != 0) {
    words.run = server->run();
    _liedAbout.insert(server->name());
  }
  words.to = (choice & 8) != 0 ? ~std::uint64_t{_input.takeByte()} : _input.takeByte();
  words.from = words.to - std::min<std::uint64_t>(words.to, _input.takeByte());
  words.text = _input.takeLine();
  if (!words.text.empty()) words.text += '\n';
  _copies.heard(words, _now);
}

void Run::answerWithALie(unsigned choice) {
  const auto question = pick(&_asked, choice, false);
  if (!question) return;
  dch::KnownHeader header{runOf(0xffff), 1 + _input.takeByte(), (choice & 1) != 0};
  const Server* const server = serverOf(question->site, 0);
  if (server != nullptr && (choice & 2) != 0) {
    header.run = server->run();
    _liedAbout.insert(server->name());
  }
  _copies.answered(question->number, header, std::string(_input.takeLine()) + '\n', _now);
}

void Run::pass(milliseconds time) {
  _now += time;
}

// ---- In the end --------------------------------------------------------------------------------

// A site has one server. One that somebody else has spoken for is restarted.
void Run::leaveOne(const std::string& site) {
  const Server* const only = serverOf(site, 0);
  if (only == nullptr) return;
  const bool isRestarted = _liedAbout.contains(site);
  _servers.remove_if(
      [&](const Server& each) { return each.name() == site && (isRestarted || &each != only); });
  if (!isRestarted) return;
  start(site);
  for (unsigned choice = 0; choice < 12; choice += 3) _servers.back().change(choice);
}

void Run::beQuiet() {
  for (const char* site : siteNames) leaveOne(site);
  _channel.isFull = false;
  _channel.isOpen = true;
  while (!_words.empty()) deliver(0);
  while (!_answers.empty()) deliverAnswer(0);
  for (const char* site : siteNames)
    if (serverOf(site, 0) == nullptr) _copies.silent(site, _now);

  for (seconds passed{0}; passed < quietTime; passed += quietStep) {
    if (passed == quietTime - lastMinute) _questioned.clear();
    passQuietly();
  }
  require(_questioned.empty(), "nobody is asked any more");
  check();
}

void Run::passQuietly() {
  for (Server& each : _servers) speak(&each, false);
  while (!_words.empty()) deliver(0);
  for (ask(); !_asked.empty(); ask()) {
    while (!_asked.empty()) answer(3);
    while (!_answers.empty()) deliverAnswer(0);
  }
  pass(quietStep);
}

void Run::check() {
  for (const char* site : siteNames) {
    const Lines& told = _channel.lines(site);
    const Server* const server = serverOf(site, 0);
    if (server != nullptr && server->knowsItself()) {
      require(told == server->lines(), "what was told is what the site has");
      continue;
    }
    for (const auto& [key, line] : told)
      require(key[0] != 'S', "who is not there has nothing on line");
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t count) {
  Run run({bytes, count});
  while (!run.atEnd()) run.step();
  run.beQuiet();
  return 0;
}
