#include "dch/link/row_publisher.h"

#include <algorithm>
#include <exception>
#include <utility>

#include "dch/core/log.h"
#include "dch/give_way.h"
#include "dch/link/row_fetches.h"
#include "dch/link/row_stream.h"
#include "dch/store/history.h"

namespace dch {

namespace {

// After what went wrong with each server, or with the file.
constexpr std::chrono::milliseconds pauseOfTries{1'000};

// How long rows may wait for their way to begin, while few come: each look takes the same time
// whether there are many or few.
constexpr std::chrono::milliseconds pauseOfLooks{20};
constexpr int mostOfTime = 4;  // a look takes no more than that part of the time

constexpr std::chrono::milliseconds idleBeforeClosing{1'000};
constexpr std::chrono::milliseconds longestEnd{1'000};

// A server that has taken nothing for so long is none that does: a cluster chooses another leader
// in less time.
constexpr std::chrono::seconds patienceWithServer{12};

// What is told about.
constexpr char theFile[] = "the file", theStream[] = "the stream";

// A connection on which there is nothing to be sent is as good as any after that time. Others are
// when a row was taken: that one may connect does not say that one may send.
constexpr std::chrono::seconds goodAfter{60};

constexpr std::size_t roomForReading = RowWindow::Limits{}.rows / 2;
constexpr int sentAtOnce = 256;
constexpr int answersAtOnce = 1'024;

}  // namespace

RowPublisher::RowPublisher(const LinkSettings& settings, const KeptRowsSource& source, LinkLog& log)
    : _settings(settings), _source(source), _log(log), _rows(source.places), _thread([this] {
        run();
      }) {}

RowPublisher::~RowPublisher() {
  stop();
  _thread.join();
}

LinkFigures RowPublisher::figures() const {
  const std::lock_guard lock(_mutex);
  return _figures;
}

void RowPublisher::run() noexcept {
  giveWay();
  while (!isOver()) {
    try {
      work();
    } catch (const LinkError& error) {
      disconnect(error.what());
    } catch (const HistoryError& error) {
      _log.tellOnce(theFile, error.what());
      _stop.wait(pauseOfTries);
    } catch (const std::exception& error) {  // no memory
      _log.tellOnce("memory", error.what());
      _stop.wait(pauseOfTries);
    }
  }
  _end.set();
}

// Whether nothing is left to be done, or no time to do it, when it is to stop.
bool RowPublisher::isOver() {
  if (!_stop.isSet()) return false;
  if (!_stopAt) _stopAt = Clock::now() + longestEnd;
  // After that time there may be no source any more.
  if (_stream == nullptr || !_window || Clock::now() >= *_stopAt) return true;
  return _window->empty() && !_hasMore && _source.keptPosition() <= _readUpTo;
}

void RowPublisher::work() {
  if (!_window) findStart();
  if (_isAside) {
    if (_stream != nullptr) leave();
    _stop.wait(pauseOfLooks);
    return;
  }
  if (_stream == nullptr) connect();
  if (_stream == nullptr) return;
  readRows();
  const bool hasSent = sendRows();
  const bool hasAnswered = _fetches->answerNext();
  if (hasAnswered) _lastRead = Clock::now();
  takeAnswers(hasSent || hasAnswered ? std::chrono::milliseconds(0) : pauseOfLooks);
  lookForProgress();
  showFigures();
}

void RowPublisher::findStart() {
  const RowsInOrder::Place published = _rows.published();
  _previous = _rows.lastRowUpTo(published.position);
  if (!_previous && published.epoch) _previous = RowName{*published.epoch, published.position};
  _readUpTo = published.position;
  _window.emplace(published.position);
}

// To one of the servers, which take turns.
void RowPublisher::connect() {
  auto stream = std::make_unique<RowStream>(_settings, server());
  if (_stop.isSet()) return;  // it may have taken any time
  _fetches = std::make_unique<RowFetches>(_settings.site, _source.run, stream->connection(), _rows);
  _stream = std::move(stream);
  _lastTaken = _connectedSince = Clock::now();
  _isGood = false;
  _log.tellOnce(server(), "linked with " + server() + " as site " + _settings.site);
  showFigures();
}

void RowPublisher::leave() noexcept {
  _fetches.reset();
  _stream.reset();
  _rows.close();
  if (_window) _window->disconnected();
  showFigures();
}

void RowPublisher::disconnect(std::string_view reason) noexcept {
  {
    const std::lock_guard lock(_mutex);
    ++_figures.failures;
  }
  leave();
  _log.tellOnce(server(), reason);
  if (++_turn % _settings.servers.size() == 0) _stop.wait(pauseOfTries);
}

// Not a row at a time as there is room for each: a look costs more than a row does.
void RowPublisher::readRows() {
  const auto now = Clock::now();
  const bool hasRoom = _window->hasRoom() && _window->waiting() <= roomForReading;
  const bool isLookDue = _hasMore || (now >= _nextLook && _source.keptPosition() > _readUpTo);
  if (!hasRoom || !isLookDue) {
    if (now - _lastRead >= idleBeforeClosing) _rows.close();
    return;
  }
  const RowsInOrder::Pass pass =
      _rows.read(_readUpTo, {}, [this](const OrderedRow& row) { add(row); });
  _readUpTo = pass.upTo;
  _hasMore = pass.isCut;
  _window->settle(_readUpTo);
  _log.forget(theFile);
  _lastRead = Clock::now();
  _nextLook = _lastRead + std::max<Clock::duration>(pauseOfLooks, mostOfTime * (_lastRead - now));
}

void RowPublisher::add(const OrderedRow& row) {
  if (row.removed) _previous = row.removed;
  const RowName unknown{row.name.epoch, _readUpTo};
  _window->add(outgoingRow(_settings.site, row, _previous.value_or(unknown)));
  _previous = row.name;
  _readUpTo = row.name.number;  // should there be no memory for the next one
}

// Returns whether there was something to send.
bool RowPublisher::sendRows() {
  for (int sent = 0; sent < sentAtOnce; ++sent) {
    const OutgoingRow* const row = _window->takeNext(Clock::now());
    if (row == nullptr) return sent > 0;
    if (_stream->send(*row) == RowStream::Sent::tooLarge) giveUp(row->number, row->subject);
  }
  return true;
}

void RowPublisher::takeAnswers(std::chrono::milliseconds atMost) {
  for (int taken = 0; taken < answersAtOnce; ++taken) {
    const std::optional<RowStream::Answer> answer = _stream->nextAnswer(atMost);
    if (!answer) return;
    takeAnswer(*answer);
    atMost = {};
  }
}

void RowPublisher::takeAnswer(const RowStream::Answer& answer) {
  using Kind = RowStream::Answer::Kind;
  switch (answer.kind) {
    case Kind::taken:
    case Kind::duplicate:
      if (_window->taken(answer.number)) notePublished();
      return;
    case Kind::refused:
      _window->refused(answer.number, Clock::now());
      _isRefused = true;
      if (answer.number != 0) _lastTaken = Clock::now();  // the stream itself says so
      return _log.tellOnce(theStream,
                           "the stream does not take rows at the moment: " + answer.reason);
    case Kind::tooLarge:
      return giveUp(answer.number, answer.reason);
  }
}

void RowPublisher::notePublished() {
  ++_rowsPublished;
  noteProgress();
  if (std::exchange(_isRefused, false) && _log.forget(theStream))
    _log.tell("the stream takes rows again");
}

void RowPublisher::giveUp(std::int64_t number, const std::string& what) {
  noteProgress();
  // That may be of the row, which goes.
  const std::string line = "row " + std::to_string(number) +
                           " is too large for the stream and is not published (" + what + "), ";
  if (!_window->giveUp(number) || !isToldAt(++_rowsTooLarge)) return;
  _log.tell(line + std::to_string(_rowsTooLarge) + " so far");
}

// What was told of the server is over.
void RowPublisher::noteProgress() {
  _lastTaken = Clock::now();
  if (!std::exchange(_isGood, true)) _log.forget(server());
}

// A server that is cut off from the others of its cluster is connected as well as any.
void RowPublisher::lookForProgress() {
  const auto now = Clock::now();
  if (_window->empty()) _lastTaken = now;
  if (_window->empty() && now - _connectedSince >= goodAfter) noteProgress();
  if (now - _lastTaken >= patienceWithServer)
    throw LinkError(server() + " is connected and has taken no row for " +
                    std::to_string(patienceWithServer.count()) + " s");
}

void RowPublisher::showFigures() {
  const std::lock_guard lock(_mutex);
  _figures.isConnected = _stream != nullptr;
  if (_window) _figures.published = _window->published();
  _figures.rowsPublished = _rowsPublished;
  _figures.rowsTooLarge = _rowsTooLarge;
}

}  // namespace dch
