#include "dch/link/row_collector.h"

#include <algorithm>
#include <exception>
#include <utility>

#include "dch/core/log.h"
#include "dch/give_way.h"
#include "dch/link/row_header.h"
#include "dch/link/stream_settings.h"
#include "dch/link/subject.h"
#include "dch/store/history.h"
#include "dch/store/remote_places.h"

namespace dch {

namespace {

using std::chrono::milliseconds;

// After what went wrong with each server, or with the file.
constexpr milliseconds pauseAfterFault{1'000};

// How long rows may wait while few come.
constexpr milliseconds pauseOfReading{20};
// While something else is waited for as well.
constexpr milliseconds shortPause{2};

// Rows that wait for the store. A commit of so many takes some milliseconds, and longer where they
// bring groups or attributes; the clients of this server wait meanwhile.
constexpr std::size_t mostUnkeptRows = 1'024;
constexpr std::size_t mostUnkeptBytes = 4 << 20;

constexpr int messagesAtOnce = 256;
// Of sites that are asked at a time.
constexpr std::size_t mostQuestions = 16;
constexpr milliseconds pauseOfQuestions{1'000};
// A site of which nothing came for so long is asked whether its last rows were lost on the way, and
// again and again after the other time.
constexpr milliseconds quietBeforeQuestion{2'000};
constexpr milliseconds pauseWhileQuiet{10'000};

// A reader of the stream that gets nothing for so long is made anew if there is something to get:
// what it reads from went down with its server.
constexpr milliseconds patienceWithStream{5'000};

// Far more than a cluster has, and each takes some memory.
constexpr std::size_t mostSites = 10'000;

constexpr char theHubsFile[] = "the file of the hub";

std::string aboutSite(const std::string& site) {
  return "site " + site;
}
std::string aboutName(const std::string& site) {
  return "the name " + site;
}

std::string_view bodyOf(const NatsMessage& message) {
  return {natsMsg_GetData(message.get()),
          static_cast<std::size_t>(natsMsg_GetDataLength(message.get()))};
}

}  // namespace

RowCollector::RowCollector(const LinkSettings& settings, std::function<StatePlaces()> places,
                           std::function<void()> wake, LinkLog& log)
    : _settings(settings),
      _log(log),
      _places(std::move(places)),
      _handover(std::move(wake)),
      _thread([this] { run(); }) {}

RowCollector::~RowCollector() {
  stop();
  _thread.join();
}

CollectorFigures RowCollector::figures() const {
  const std::lock_guard lock(_mutex);
  CollectorFigures figures = _figures;
  figures.rowsCollected = _handover.rowsKept();
  return figures;
}

void RowCollector::run() noexcept {
  giveWay();
  while (!_stop.isSet()) {
    try {
      work();
    } catch (const LinkError& error) {
      disconnect(error.what());
    } catch (const HistoryError& error) {
      _log.tellOnce(theHubsFile, error.what());
      _stop.wait(pauseAfterFault);
    } catch (const std::exception& error) {  // no memory
      _log.tellOnce("memory", error.what());
      forgetAll();
      _stop.wait(pauseAfterFault);
    }
  }
  forgetAll();  // a server that stands still takes its time for that, too
  _end.set();
}

// A row may be counted as taken, and not be among those that are to be kept.
void RowCollector::forgetAll() noexcept {
  leave();
  _touched.clear();
  _sites.clear();
  _unkeptRows = _unkeptBytes = 0;
  _knowsStart = false;
}

void RowCollector::work() {
  if (!_knowsStart) findStart();
  if (_stop.isSet()) return;  // there may be no file any more
  if (_isAside) {
    if (_stream) leave();
    handOver();
    showFigures();
    _stop.wait(pauseOfReading);
    return;
  }
  takeSites();
  if (!_stream) {
    handOver();  // it may take any time
    connect();
  }
  if (_stop.isSet()) return;  // that may have taken any time
  const bool isQuiet = _questions.empty() && !_secondReading;
  if (hasRoom())
    readStream(isQuiet ? pauseOfReading : shortPause);
  else
    _stop.wait(shortPause);
  if (hasRoom()) readAgain();
  ask();
  takeAnswers();
  handOver();
  showFigures();
}

// When all that was handed over is kept: else it would be collected a second time.
void RowCollector::findStart() {
  while (_handover.isUnderWay())
    if (_stop.wait(pauseOfReading)) return;
  const RemotePlaces places = readRemotePlaces(_places);
  for (const RemotePlaces::Site& each : places.sites)
    _sites.try_emplace(each.name, each.name, IncomingRows::State{each.known, each.passedFrom});
  _read = {places.stream.stream, places.stream.sequence};
  _log.forget(theHubsFile);
  _knowsStart = true;
}

// To one of the servers, which take turns.
void RowCollector::connect() {
  auto connection = std::make_unique<ServerConnection>(_settings, server());
  if (_stop.isSet()) return;  // it may have taken any time
  const StreamState stream = provideRowsStream(*connection);
  if (stream.made != _read.stream) {
    // What was passed over in another one is not to be found in this.
    for (auto& [name, site] : _sites) {
      site.rows.streamBeganAnew();
      site.lastSequence = 0;
      _touched.insert(&site);
    }
    _read = {stream.made, 0};
  }
  // Its end may have been lost with a server.
  _read.sequence = std::min(_read.sequence, stream.lastSequence);
  _isAtEnd = _read.sequence == stream.lastSequence;
  _patientUntil = Clock::now() + patienceWithStream;
  _stream.emplace(*connection, "zord.rows.>", _read.sequence + 1);
  _connection = std::move(connection);
  _isGood = false;
}

void RowCollector::leave() noexcept {
  _secondReading.reset();
  _questions.clear();
  _boxes.clear();
  _stream.reset();
  _connection.reset();
}

void RowCollector::disconnect(std::string_view reason) noexcept {
  leave();
  ++_counted.failures;
  showFigures();
  _log.tellOnce(server(), reason);
  if (++_turn % _settings.servers.size() == 0) _stop.wait(pauseAfterFault);
}

void RowCollector::readStream(milliseconds atMost) {
  for (int count = 0; count < messagesAtOnce && hasRoom(); ++count) {
    const auto message = _stream->next(count == 0 ? atMost : milliseconds(0));
    if (!message) return lookForProgress();
    takeStreamed(*message, false);
    _read.sequence = std::max(_read.sequence, message->sequence);
    noteProgress();
    _isAtEnd = message->pending == 0;
    _patientUntil = Clock::now() + patienceWithStream;
  }
}

// The reader that the server keeps for us may be gone, or cut off from the stream.
void RowCollector::lookForProgress() {
  const auto now = Clock::now();
  if (now < _patientUntil) return;
  _patientUntil = now + patienceWithStream;
  if (!std::exchange(_isAtEnd, _stream->isAtEnd()) && !_isAtEnd)
    throw LinkError(server() + " is connected and has sent no row of the stream for some time");
  if (_isAtEnd) noteProgress();
}

// What was told of the server is over.
void RowCollector::noteProgress() {
  if (!std::exchange(_isGood, true)) _log.forget(server());
}

void RowCollector::takeStreamed(const StreamedRows::Message& message, bool isAgain) {
  const auto header = parseRowHeader(message.header());
  const auto subject = parseRowSubject(message.subject());
  if (!header || !subject || !mayBeKept(*header, *subject))
    return refuse("the stream has what is no row: " + std::string(message.subject()));
  if (subject->site == _settings.site) return;
  CollectedSite* const site = siteOf(subject->site);
  if (site == nullptr) return refuse("the rows are of more sites than can be kept");
  _touched.insert(site);
  if (!isAgain) {
    site->lastHeard = Clock::now();
    site->lastSequence = message.sequence;
  }
  const std::uint64_t gaps = site->rows.gaps();
  const bool isWanted = isAgain ? site->rows.again(message.sequence, *header)
                                : site->rows.fromStream(message.sequence, *header);
  _counted.rowsAfterGaps += site->rows.gaps() - gaps;
  if (isWanted) keep(site, *header, *subject, message.body());
}

void RowCollector::keep(CollectedSite* site, const RowHeader& header, const RowSubject& subject,
                        std::string_view message) {
  _touched.insert(site);
  site->keep(header, subject, message);
  ++_unkeptRows;
  _unkeptBytes += message.size();
}

bool RowCollector::hasRoom() const {
  return _unkeptRows < mostUnkeptRows && _unkeptBytes < mostUnkeptBytes;
}

// Null when there are too many.
CollectedSite* RowCollector::siteOf(const std::string& name) {
  const auto known = _sites.find(name);
  if (known != _sites.end()) return &known->second;
  if (_sites.size() >= mostSites) return nullptr;
  return &_sites.try_emplace(name, name).first->second;
}

void RowCollector::setSites(std::shared_ptr<const std::vector<SiteState>> sites) noexcept {
  const std::lock_guard lock(_mutex);
  _sitesThere.swap(sites);
}

// One without a file has no rows. Half of the room is for those that are known by their rows.
void RowCollector::takeSites() {
  std::shared_ptr<const std::vector<SiteState>> sites;
  {
    const std::lock_guard lock(_mutex);
    sites.swap(_sitesThere);
  }
  if (sites == nullptr) return;
  for (auto& [name, site] : _sites) site.aloneRun.reset();
  auto collected = std::make_shared<std::map<std::string, RowName, std::less<>>>();
  for (const SiteState& each : *sites) {
    if (each.isReachable && each.newest && _sites.size() < mostSites / 2) siteOf(each.name);
    const auto known = _sites.find(each.name);
    if (known == _sites.end()) continue;
    if (each.isAlone) known->second.aloneRun = each.run;
    if (const auto upTo = known->second.collectedUpTo(each.run))
      collected->emplace(each.name, RowName{each.run, *upTo});
  }
  _counted.collected = std::move(collected);
}

void RowCollector::refuse(const std::string& why) {
  if (isToldAt(++_counted.rowsRefused))
    _log.tell(why + ", " + std::to_string(_counted.rowsRefused) + " messages so far");
}

void RowCollector::ask() {
  while (_questions.size() < mostQuestions && hasRoom()) {
    CollectedSite* const site = siteToAsk(Clock::now());
    if (site == nullptr) return;
    if (_boxes.empty()) _boxes.push_back(std::make_unique<AnswerBox>(*_connection));
    _questions.emplace_back(*_connection, *site, std::move(_boxes.front()));
    _boxes.pop_front();
  }
}

CollectedSite* RowCollector::siteToAsk(Clock::time_point now) {
  return nextSite(&_lastAsked, [&](const CollectedSite& site) {
    if (site.isBusy || now < site.nextQuestion) return false;
    const bool isQuiet = _isAtEnd && now >= site.nextLook &&
                         now - site.lastHeard >= quietBeforeQuestion &&
                         site.rows.wants() == IncomingRows::Wants::nothing;
    return isQuiet || site.rows.wants() == IncomingRows::Wants::fetch;
  });
}

// The next one behind the last that is wanted: the last then, so that each has its turn.
template <class IsWanted>
CollectedSite* RowCollector::nextSite(std::string* last, IsWanted isWanted) {
  auto place = _sites.upper_bound(*last);
  for (std::size_t count = 0; count < _sites.size(); ++count, ++place) {
    if (place == _sites.end()) place = _sites.begin();
    if (!isWanted(place->second)) continue;
    *last = place->first;
    return &place->second;
  }
  return nullptr;
}

void RowCollector::takeAnswers() {
  for (auto question = _questions.begin(); question != _questions.end();) {
    while (hasRoom()) {
      const auto row = question->next();
      if (!row) break;
      ++_counted.rowsFetched;
      keep(&question->site(), row->header, row->subject, bodyOf(row->message));
    }
    if (question->answer() == SiteQuestion::Answer::underWay) {
      ++question;
    } else {
      conclude(*question);
      _boxes.push_back(question->takeBox());
      question = _questions.erase(question);
    }
  }
}

void RowCollector::conclude(const SiteQuestion& question) {
  using Answer = SiteQuestion::Answer;
  CollectedSite& site = question.site();
  _touched.insert(&site);
  const auto now = Clock::now();
  const bool isGood = question.answer() == Answer::good;
  const bool isMissing = site.rows.wants() == IncomingRows::Wants::fetch;
  const bool answers = question.answer() != Answer::none;
  // For more at once, unless it has none.
  const bool isMoreThere = isMissing && question.hasMore() && question.rows() > 0;
  const bool waitsForOne = isGood && site.rows.waitsForOne();
  site.nextQuestion = isMoreThere   ? now
                      : waitsForOne ? now + pauseWhileQuiet
                                    : now + pauseOfQuestions;
  if (isGood) site.nextLook = now + pauseWhileQuiet;
  if (answers) site.lastHeard = now;
  if (!answers && isMissing)
    _log.tellOnce(aboutSite(site.name()),
                  "site " + site.name() + " does not answer, and rows of it are missing here");
  if (waitsForOne)
    _log.tellOnce(aboutName(site.name()),
                  "rows of site " + site.name() +
                      " are missing here, and the server that answers for it has them not; they "
                      "are waited for until it is heard on zord.alive as the only one of its name");
  if (isGood && !waitsForOne) _log.forget(aboutName(site.name()));
  if (isGood && _log.forget(aboutSite(site.name())))
    _log.tell("site " + site.name() + " answers again");
}

void RowCollector::readAgain() {
  if (!_secondReading) beginSecondReading();
  if (!_secondReading) return;
  for (int count = 0; count < messagesAtOnce && hasRoom(); ++count) {
    const auto message = _secondReading->next();
    if (!message) break;
    takeStreamed(*message, true);
  }
  if (!_secondReading->isOver()) return;
  _touched.insert(&_secondReading->site());
  _secondReading.reset();
}

// One site at a time: each costs the server a reader.
void RowCollector::beginSecondReading() {
  CollectedSite* const site = nextSite(&_lastReadAgain, [](const CollectedSite& each) {
    return each.rows.wants() == IncomingRows::Wants::reread;
  });
  if (site != nullptr) _secondReading.emplace(*_connection, *site);
}

void RowCollector::handOver() {
  if (_handover.offer(&_touched, _unkeptRows, _read)) _unkeptRows = _unkeptBytes = 0;
}

void RowCollector::showFigures() {
  _counted.isConnected = _connection != nullptr;
  _counted.sites = _sites.size();
  const std::lock_guard lock(_mutex);
  _figures = _counted;
}

}  // namespace dch
