#include "dch/link/row_collector.h"

#include <algorithm>
#include <exception>
#include <utility>

#include "dch/core/log.h"
#include "dch/give_way.h"
#include "dch/link/row_fetch.h"
#include "dch/link/row_header.h"
#include "dch/link/stream_settings.h"
#include "dch/link/subject.h"
#include "dch/store/history.h"
#include "dch/store/remote_places.h"

namespace dch {

namespace {

using std::chrono::milliseconds;

// After what went wrong with each server, or with the file.
constexpr milliseconds pauseOfTries{1'000};

// How long rows may wait while few come.
constexpr milliseconds pauseOfLooks{20};
// While answers are waited for as well.
constexpr milliseconds shortPause{2};

// Rows that wait for the store. A commit of so many takes some milliseconds, in which the clients
// of this server wait.
constexpr std::size_t mostUnkeptRows = 1'024;
constexpr std::size_t mostUnkeptBytes = 4 << 20;

constexpr int messagesAtOnce = 256;
constexpr int answersAtOnce = 1'024;

// No site sends more for one question.
constexpr std::uint64_t mostRowsOfAnswer = 1'024;
constexpr std::size_t mostBytesOfAnswer = 4 << 20;

// A site that does not answer for so long has not heard the question, or stands still.
constexpr milliseconds patienceWithSite{2'000};
constexpr milliseconds pauseOfQuestions{1'000};
// A site of which nothing came for so long is asked whether its last rows were lost on the way, and
// again and again after the other time.
constexpr milliseconds quietBeforeQuestion{2'000};
constexpr milliseconds pauseWhileQuiet{10'000};

// A reader of the stream that gets nothing for so long is made anew if there is something to get:
// what it reads from went down with its server.
constexpr milliseconds patienceWithStream{5'000};

constexpr milliseconds pauseOfPlaces{1'000};

// Far more than a cluster has, and each takes some memory.
constexpr std::size_t mostSites = 10'000;

constexpr char theFile[] = "the file of the hub";

std::string aboutSite(const std::string& site) {
  return "site " + site;
}

const char* headerOf(natsMsg* message, const char* name) {
  const char* value = nullptr;
  return natsMsgHeader_Get(message, name, &value) == NATS_OK ? value : nullptr;
}

}  // namespace

RowCollector::RowCollector(const LinkSettings& settings, std::function<StatePlaces()> places,
                           std::function<void()> wake, LinkLog& log)
    : _settings(settings),
      _wake(std::move(wake)),
      _log(log),
      _places(std::move(places)),
      _thread([this] { run(); }) {}

RowCollector::~RowCollector() {
  stop();
  _thread.join();
}

std::vector<Change> RowCollector::take() {
  const std::lock_guard lock(_mutex);
  return std::exchange(_handedOver, {});
}

void RowCollector::taken() noexcept {
  const std::lock_guard lock(_mutex);
  _isUnderWay = false;
  _keptUpTo = std::move(_handedOverUpTo);  // asks for no memory
  _figures.rowsCollected += std::exchange(_rowsHandedOver, 0);
}

bool RowCollector::isUnderWay() const {
  const std::lock_guard lock(_mutex);
  return _isUnderWay;
}

CollectorFigures RowCollector::figures() const {
  const std::lock_guard lock(_mutex);
  return _figures;
}

void RowCollector::run() noexcept {
  giveWay();
  while (!_stop.isSet()) {
    try {
      work();
    } catch (const LinkError& error) {
      disconnect(error.what());
    } catch (const HistoryError& error) {
      _log.tellOnce(theFile, error.what());
      _stop.wait(pauseOfTries);
    } catch (const std::exception& error) {  // no memory
      _log.tellOnce("memory", error.what());
      forgetAll();
      _stop.wait(pauseOfTries);
    }
  }
  forgetAll();  // a server that stands still takes its time for that, too
  _end.set();
}

// A row may be counted as taken, and not be among those that are to be kept.
void RowCollector::forgetAll() noexcept {
  _secondReading.reset();
  _question.reset();
  _stream.reset();
  _connection.reset();
  _touched.clear();
  _sites.clear();
  _unkeptRows = _unkeptBytes = 0;
  _knowsStart = false;
}

void RowCollector::work() {
  if (!_knowsStart) findStart();
  if (_stop.isSet()) return;  // there may be no file any more
  if (!_stream) {
    handOver();  // it may take any time
    connect();
  }
  if (_stop.isSet()) return;  // that may have taken any time
  const bool waitsForRows = hasRoom() && !_question && !_secondReading;
  if (hasRoom()) readStream(waitsForRows ? pauseOfLooks : milliseconds(0));
  if (hasRoom()) readAgain();
  ask();
  takeAnswers(waitsForRows ? milliseconds(0) : shortPause);
  handOver();
  showFigures();
}

// When all that was handed over is kept: else it would be collected a second time.
void RowCollector::findStart() {
  while (isUnderWay())
    if (_stop.wait(pauseOfLooks)) return;
  const RemotePlaces places = readRemotePlaces(_places);
  for (const RemotePlaces::Site& each : places.sites)
    _sites.try_emplace(each.name, each.name, IncomingRows::State{each.known, each.passedFrom});
  _read = {places.stream.stream, places.stream.sequence};
  _log.forget(theFile);
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

void RowCollector::disconnect(std::string_view reason) noexcept {
  if (_question) siteOf(_question->site)->rows.fetchFailed();
  _question.reset();
  _secondReading.reset();
  for (auto& [name, site] : _sites) site.rows.rereadFailed();  // also where none could begin
  _stream.reset();
  _connection.reset();
  ++_counted.failures;
  showFigures();
  _log.tellOnce(server(), reason);
  if (++_turn % _settings.servers.size() == 0) _stop.wait(pauseOfTries);
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
  if (!header || !subject || subject->site.size() > longestSiteName)
    return refuse("the stream has what is no row: " + std::string(message.subject()));
  if (subject->site == _settings.site) return;
  CollectedSite* const site = siteOf(subject->site);
  if (site == nullptr) return refuse("the rows are of more sites than can be kept");
  _touched.insert(site);
  if (!isAgain) {
    site->lastHeard = Clock::now();
    site->lastSequence = message.sequence;
  }
  const bool isWanted = isAgain ? site->rows.again(message.sequence, *header)
                                : site->rows.fromStream(message.sequence, *header);
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

void RowCollector::refuse(const std::string& why) {
  if (isToldAt(++_counted.rowsRefused))
    _log.tell(why + ", " + std::to_string(_counted.rowsRefused) + " messages so far");
}

// One site at a time: when nobody hears a question the library does not say which.
void RowCollector::ask() {
  const auto now = Clock::now();
  if (_question && now >= _question->patientUntil) endQuestion(Answer::none);
  if (_question || !hasRoom()) return;
  CollectedSite* const site = siteToAsk(now);
  if (site == nullptr) return;
  _question = {site->name(), "fetch" + std::to_string(++_questions), now + patienceWithSite};
  _connection->send(fetchSubject(site->name()), _connection->replySubject(_question->name), {},
                    fetchRequestText(site->rows.beginFetch()));
}

// The next one behind the site that was asked last.
CollectedSite* RowCollector::siteToAsk(Clock::time_point now) {
  auto place = _sites.upper_bound(_lastAsked);
  for (std::size_t count = 0; count < _sites.size(); ++count, ++place) {
    if (place == _sites.end()) place = _sites.begin();
    CollectedSite& site = place->second;
    const bool isQuiet = _isAtEnd && now >= site.nextLook &&
                         now - site.lastHeard >= quietBeforeQuestion &&
                         site.rows.wants() == IncomingRows::Wants::nothing &&
                         !(_secondReading && _secondReading->site == site.name());
    const bool isWanted = isQuiet || site.rows.wants() == IncomingRows::Wants::fetch;
    if (!isWanted || now < site.nextQuestion) continue;
    _lastAsked = site.name();
    return &site;
  }
  return nullptr;
}

void RowCollector::takeAnswers(milliseconds atMost) {
  for (int count = 0; count < answersAtOnce; ++count) {
    const auto [message, nobodyTakesIt] = _connection->next(count == 0 ? atMost : milliseconds(0));
    if (nobodyTakesIt && _question) endQuestion(Answer::none);
    if (message == nullptr) return;
    const bool isAnswer =
        _question && _connection->nameIn(natsMsg_GetSubject(message.get())) == _question->name;
    if (isAnswer) takeAnswer(message.get());
  }
}

void RowCollector::takeAnswer(natsMsg* message) {
  CollectedSite* const site = siteOf(_question->site);
  _question->patientUntil = Clock::now() + patienceWithSite;
  if (const char* const text = headerOf(message, "Zord-Fetched")) {
    const auto end = parseFetchEnd(text);
    return endQuestion(end && site->rows.fetchEnded(*end) ? Answer::good : Answer::bad);
  }
  const char* const text = headerOf(message, "Zord-Row");
  const char* const subjectText = headerOf(message, "Zord-Subject");
  if (text == nullptr || subjectText == nullptr) return endQuestion(Answer::bad);
  const auto header = parseRowHeader(text);
  const auto subject = parseRowSubject(subjectText);
  if (!header || !subject || subject->site != site->name()) return endQuestion(Answer::bad);
  const auto bytes = static_cast<std::size_t>(natsMsg_GetDataLength(message));
  _question->bytes += bytes;
  if (++_question->rows > mostRowsOfAnswer || _question->bytes > mostBytesOfAnswer)
    return endQuestion(Answer::bad);
  if (!site->rows.fetched(*header)) return;
  ++_counted.rowsFetched;
  keep(site, *header, *subject, {natsMsg_GetData(message), bytes});
}

void RowCollector::endQuestion(Answer answer) {
  CollectedSite* const site = siteOf(_question->site);
  _question.reset();
  _touched.insert(site);
  const auto now = Clock::now();
  site->answers = answer != Answer::none;
  site->nextQuestion = now + pauseOfQuestions;
  if (answer == Answer::good) {
    if (site->rows.wants() == IncomingRows::Wants::fetch) site->nextQuestion = now;  // for more
    site->nextLook = now + pauseWhileQuiet;
  }
  if (answer != Answer::good) site->rows.fetchFailed();
  if (answer != Answer::none) site->lastHeard = now;
  if (answer == Answer::none && site->rows.wants() == IncomingRows::Wants::fetch)
    _log.tellOnce(aboutSite(site->name()),
                  "site " + site->name() + " does not answer, and rows of it are missing here");
  if (answer == Answer::good && _log.forget(aboutSite(site->name())))
    _log.tell("site " + site->name() + " answers again");
}

// One site at a time: each costs the server a reader.
void RowCollector::readAgain() {
  const auto now = Clock::now();
  if (!_secondReading && !beginSecondReading(now)) return;
  CollectedSite* const site = siteOf(_secondReading->site);
  for (int count = 0; count < messagesAtOnce && hasRoom(); ++count) {
    const auto message = _secondReading->rows.next({});
    if (!message) {
      if (now >= _secondReading->patientUntil) endSecondReading(_secondReading->rows.isAtEnd());
      return;
    }
    takeStreamed(*message, true);
    _secondReading->patientUntil = now + patienceWithStream;
    if (message->pending == 0 && message->sequence >= site->lastSequence)
      return endSecondReading(true);
  }
}

bool RowCollector::beginSecondReading(Clock::time_point now) {
  for (auto& [name, site] : _sites)
    if (site.rows.wants() == IncomingRows::Wants::reread) {
      // That may fail, and nothing has begun then.
      StreamedRows rows(*_connection, "zord.rows." + subjectToken(name) + ".>",
                        *site.rows.state().passedFrom);
      site.rows.beginReread();
      _secondReading.emplace(SecondReading{name, std::move(rows), now + patienceWithStream});
      return true;
    }
  return false;
}

void RowCollector::endSecondReading(bool isAtEnd) {
  CollectedSite* const site = siteOf(_secondReading->site);
  _secondReading.reset();
  _touched.insert(site);
  isAtEnd ? site->rows.rereadEnded() : site->rows.rereadFailed();
}

// All that is to be kept, while nothing is under way.
void RowCollector::handOver() {
  const std::lock_guard lock(_mutex);
  if (_isUnderWay) return;
  std::vector<Change> changes;
  for (CollectedSite* const site : _touched)
    if (auto unkept = site->takeUnkept()) changes.emplace_back(*std::move(unkept));
  _touched.clear();
  const auto now = Clock::now();
  const bool isPlaceDue = _keptUpTo.sequence != _toldUpTo.sequence && now >= _nextPlace;
  if (isPlaceDue) {
    changes.emplace_back(StreamRead{_keptUpTo.stream, _keptUpTo.sequence});
    _toldUpTo = _keptUpTo;
    _nextPlace = now + pauseOfPlaces;
  }
  if (changes.empty()) {
    _keptUpTo = _read;
    return;
  }
  _handedOverUpTo = _read;
  _handedOver = std::move(changes);
  _rowsHandedOver = std::exchange(_unkeptRows, 0);
  _unkeptBytes = 0;
  _isUnderWay = true;
  _wake();
}

void RowCollector::showFigures() {
  _counted.sites = _sites.size();
  _counted.sitesSilent = 0;
  _counted.rowsAfterGaps = 0;
  for (const auto& [name, site] : _sites) {
    if (!site.answers) ++_counted.sitesSilent;
    _counted.rowsAfterGaps += site.rows.gaps();
  }
  const std::lock_guard lock(_mutex);
  const std::uint64_t collected = _figures.rowsCollected;
  _figures = _counted;
  _figures.rowsCollected = collected;
}

}  // namespace dch
