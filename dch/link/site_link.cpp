#include "dch/link/site_link.h"

#include <exception>
#include <new>
#include <utility>

#include "dch/core/log.h"
#include "dch/link/alive_message.h"

namespace dch {

namespace {

using std::chrono::milliseconds;

// After what went wrong with each server.
constexpr milliseconds pauseBetweenTurns{1'000};
// What a user may do does not change often.
constexpr milliseconds pauseWithoutRights{60'000};

// A connection that was lost is noticed after so long.
constexpr milliseconds longestWait{100};
// Whoever sends without an end does not have this thread take it one by one.
constexpr milliseconds pauseOfTaking{10};
constexpr milliseconds pauseOfLookingAround{1'000};

// The channel ticks every second: without one for so long it stands still.
constexpr milliseconds longestTick{3'000};
// So much sooner than after its period a site speaks, as its ticks are not to the millisecond.
constexpr milliseconds slack{500};

// A connection that has held for so long is as good as any.
constexpr std::chrono::seconds goodAfterHolding{60};

constexpr char theRights[] = "the rights", theName[] = "the name";

}  // namespace

SiteLink::SiteLink(const LinkSettings& settings, const Epoch& run, std::string version,
                   std::shared_ptr<LiveRows> rows, std::shared_ptr<SiteProviders> providers,
                   LinkLog& log)
    : _settings(settings),
      _run(run),
      _version(std::move(version)),
      _subject(aliveSubject(settings.site)),
      _log(log),
      _inbox(std::make_shared<AliveInbox>()),
      _rows(std::move(rows)),
      _watch(settings.site, run),
      _exchanges(settings.site, run, _rows, std::move(providers), log,
                 [inbox = _inbox] { inbox->ring(); }) {
  _rows->setWakeLink([inbox = _inbox] { inbox->ring(); });
  _figures.sites = std::make_shared<const std::vector<SiteState>>();
  _thread = std::thread([this] { this->run(); });
}

SiteLink::~SiteLink() {
  stop();
  _thread.join();
}

void SiteLink::tick(const Places& places) noexcept {
  {
    const std::lock_guard lock(_mutex);
    _tick = {_tick.number + 1, Clock::now(), places};
  }
  _inbox->ring();
}

void SiteLink::stop() noexcept {
  _stop.set();
  _inbox->ring();
}

SiteFigures SiteLink::figures() const {
  const std::lock_guard lock(_mutex);
  return _figures;
}

void SiteLink::run() noexcept {
  while (!_stop.isSet()) {
    try {
      work();
    } catch (const NotPermitted& error) {
      disconnect();
      if (!_exchanges.noteRefusal(error.what())) tryMuchLater(error.what());
    } catch (const LinkError& error) {
      disconnect();
      tryLater(error.what());
    } catch (const std::exception& error) {  // no memory
      _log.tellOnce("memory", error.what());
      _stop.wait(pauseBetweenTurns);
    }
  }
  speakLast();
  disconnect();  // a server that stands still takes its time for that, too
  _end.set();
}

void SiteLink::work() {
  if (_connection == nullptr && Clock::now() >= _nextTry) connect();
  await();
  _exchanges.providers().takeOwn();
  if (_connection != nullptr) {
    _connection->check();
    exchange();
  }
  if (_maySpeak) takeHeard();
  lookAround();
  if (_connection == nullptr) return;
  speakIfDue();
  const auto now = Clock::now();
  if (_isGood || now - _connectedSince < goodAfterHolding) return;
  _isGood = true;
  _log.forget(server());
  _log.forget(theRights);
}

// Until there is something to do, or to look whether there is.
void SiteLink::await() {
  _rows->await();
  if (_exchanges.hasMore()) return;
  _inbox->wait(Clock::now() < _nextTaking ? pauseOfTaking : longestWait);
}

// While others may hear this site, as long as its name is its own.
void SiteLink::exchange() {
  if (_maySpeak && !_wasAside)
    _exchanges.work(*_connection);
  else
    _exchanges.end();
}

// To one of the servers, which take turns.
void SiteLink::connect() {
  auto connection = std::make_unique<LiveConnection>(_settings, server());
  if (_stop.isSet()) return;  // it may have taken any time
  // What it throws is about this connection, which is not there for others yet.
  auto subscription = connection->subscribe("zord.alive.*", _inbox, LiveConnection::Room::much);
  connection->settle();
  _connection = std::move(connection);
  _subscription.emplace(std::move(subscription));
  _connectedSince = _nextSpeech = _nextChanges = Clock::now();
  _isGood = false;
  _spokenTick = 0;
  _watch.connected(_connectedSince);
}

void SiteLink::disconnect() noexcept {
  _exchanges.end();
  _maySpeak = false;
  _subscription.reset();
  _connection.reset();
  _inbox->take();  // what was not looked at is old when it is
  _inbox->takeChanges();
}

// What is wrong with a server is wrong for the rows, too: it is told once of both.
void SiteLink::tryLater(std::string_view reason) noexcept {
  _log.tellOnce(server(), reason);
  if (++_turn % _settings.servers.size() == 0) _nextTry = Clock::now() + pauseBetweenTurns;
}

void SiteLink::tryMuchLater(std::string_view reason) noexcept {
  try {
    _log.tellOnce(theRights, std::string(reason) +
                                 "; so other sites do not see that this one is there, nor this one "
                                 "them; the rows go on all the same");
  } catch (const std::bad_alloc&) {
    // It is told the next time.
  }
  _nextTry = Clock::now() + pauseWithoutRights;
}

void SiteLink::takeHeard() {
  const auto now = Clock::now();
  if (now < _nextTaking) return;
  const auto heard = _inbox->take();
  for (const auto& [site, messages] : heard)
    for (const AliveMessage& each : messages)
      if (_watch.heard(site, each, now) == SiteWatch::Heard::noRoom &&
          isToldAt(++_sitesWithoutRoom))
        _log.tell("more sites say that they are there than can be known, " +
                  std::to_string(_sitesWithoutRoom) + " messages so far");
  for (const SiteChanges& each : _inbox->takeChanges())
    if (_watch.knows(each.site)) _exchanges.providers().heard(each);  // else nobody misses it
  noteName();
  if (!heard.empty()) _nextTaking = now + pauseOfTaking;
}

void SiteLink::noteName() {
  const bool isAside = _watch.isAside();
  if (isAside) _exchanges.end();  // before anybody is told
  const bool hasRival = isAside || _watch.hasRival();
  if (std::exchange(_hasRival, hasRival) != hasRival) {
    if (hasRival)
      ++_namesRefused;
    else if (_log.forget(theName))
      _log.tell("no other server says any more that it is site " + _settings.site);
  }
  if (std::exchange(_wasAside, isAside) != isAside) _log.forget(theName);
  if (hasRival)
    _log.tellOnce(theName, "another server says that it is site " + _settings.site +
                               ", too: give one of them another name. " +
                               (isAside ? "This one stands aside: it publishes no rows and takes "
                                          "in none until the other is gone"
                                        : "That one stands aside"));
  const std::lock_guard lock(_mutex);
  _figures.isAside = isAside;
  _figures.nameRefused = _namesRefused;
  _figures.messagesRefused = _inbox->refused() + _sitesWithoutRoom;
  _figures.questionsRefused = _exchanges.providers().refused() + _inbox->changesDropped();
}

void SiteLink::lookAround() {
  const auto now = Clock::now();
  if (now < _nextLook) return;
  _nextLook = now + pauseOfLookingAround;
  for (const std::string& each : _watch.fallenSilent(now, _maySpeak))
    _exchanges.providers().silent(each);
  noteName();
  auto sites = std::make_shared<const std::vector<SiteState>>(_watch.states());
  for (const std::string& each : _news.lines(*sites, now)) _log.tell(each);
  const std::lock_guard lock(_mutex);
  _figures.sites = std::move(sites);
}

SiteLink::Tick SiteLink::lastTick() const {
  const std::lock_guard lock(_mutex);
  return _tick;
}

void SiteLink::speakIfDue() {
  const Tick tick = lastTick();
  const auto now = Clock::now();
  if (tick.number == 0 || now - tick.time > longestTick) return;
  const bool isAsked = _watch.mustSpeakNow(now);
  const bool isDue =
      now >= _nextSpeech || (now >= _nextChanges && _exchanges.providers().hasChanges());
  if (isAsked || (tick.number != _spokenTick && isDue)) speak(tick, false);
}

void SiteLink::speak(const Tick& tick, bool isLast) {
  const auto now = Clock::now();
  const SiteWatch::Speech speech = _watch.speak(now);
  AliveMessage message;
  message.run = _run;
  message.count = ++_count;
  message.period = speech.period;
  message.state = isLast ? AliveMessage::State::stopping : speech.state;
  message.hears = speech.hears;
  message.newest = tick.places.newest;
  message.published = tick.places.published;
  message.version = _version;
  // Not before it is settled which of two of one name has it.
  const bool isNewAndAlone = message.state == AliveMessage::State::newcomer && !message.hears;
  if (message.state == AliveMessage::State::here || isNewAndAlone) {
    OwnProviders::Changes changes = _exchanges.providers().changes();
    message.from = changes.from;
    message.to = changes.to;
    message.changes = std::move(changes.text);
  }
  _connection->send(_subject, {}, {}, aliveText(message));
  // Who tries again and again whether he may is not to be there for the others, nor they for him,
  // for a moment each time.
  if (!_maySpeak) _connection->settle();
  _maySpeak = true;
  _spokenTick = tick.number;
  _nextSpeech = now + speech.period - slack;
  _nextChanges = now + speech.untilChanges - slack;
}

void SiteLink::speakLast() noexcept {
  if (_connection == nullptr) return;
  try {
    if (const Tick tick = lastTick(); tick.number > 0) speak(tick, true);
  } catch (const std::exception&) {
    // Others see it by themselves, in a while.
  }
}

}  // namespace dch
