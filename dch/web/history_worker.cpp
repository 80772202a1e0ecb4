#include "dch/web/history_worker.h"

#include <exception>
#include <new>

#include "dch/give_way.h"
#include "dch/web/http_status.h"
#include "dch/web/web_error.h"

namespace dch {

namespace {

HistoryWorker::Outcome failure(int status, const char* sentence) noexcept {
  HistoryWorker::Outcome outcome{{}, true, status};
  try {
    outcome.text = sentence;
  } catch (const std::bad_alloc&) {
    // The status alone says something.
  }
  return outcome;
}

}  // namespace

class HistoryWorker::Answering {
 public:
  Answering(RowsQuestion asked, std::shared_ptr<std::atomic<std::size_t>> count)
      : question(std::move(asked)), _count(std::move(count)) {
    ++*_count;
  }
  ~Answering() { --*_count; }
  Answering(const Answering&) = delete;
  Answering& operator=(const Answering&) = delete;

  const RowsQuestion question;

  Take take;  // the web's thread's

  // The history's thread's, but between two pieces.
  Clock::time_point wantedSince;
  std::optional<RowsReading> reading;
  Outcome outcome;

  Queue place;  // in a queue, when it is empty

 private:
  const std::shared_ptr<std::atomic<std::size_t>> _count;
};

HistoryWorker::HistoryWorker(EventLoop& loop, std::function<StatePlaces()> places,
                             const HistoryLimits& limits)
    : _limits(limits),
      _history(std::move(places)),
      _handBack(loop, [this] { handBack(); }),
      _questions(std::make_shared<std::atomic<std::size_t>>(0)),
      _thread([this] { run(); }) {}

HistoryWorker::~HistoryWorker() {
  {
    const std::lock_guard lock(_mutex);
    _isStopping = true;
  }
  _history.interrupt();
  _changed.notify_one();
  _thread.join();
}

std::shared_ptr<HistoryWorker::Answering> HistoryWorker::begin(const RowsQuestion& question) {
  if (*_questions >= _limits.questions) return nullptr;
  auto answering = std::make_shared<Answering>(question, _questions);
  answering->place.push_back(answering);
  return answering;
}

void HistoryWorker::next(const std::shared_ptr<Answering>& answering, Take take) noexcept {
  answering->take = std::move(take);
  answering->wantedSince = Clock::now();
  {
    const std::lock_guard lock(_mutex);
    _wanted.splice(_wanted.end(), answering->place);
  }
  _changed.notify_one();
}

void HistoryWorker::handBack() {
  Queue finished;
  {
    const std::lock_guard lock(_mutex);
    finished.swap(_finished);
  }
  while (!finished.empty()) {
    Queue place;
    place.splice(place.end(), finished, finished.begin());
    const auto answering = place.front().lock();
    if (answering == nullptr) continue;
    answering->place.swap(place);
    const Take take = std::exchange(answering->take, nullptr);
    try {
      take(std::move(answering->outcome));
    } catch (const std::bad_alloc&) {
      // Who asked is told nothing more.
    }
  }
}

void HistoryWorker::run() noexcept {
  giveWay();
  Lock lock(_mutex);
  while (!_isStopping) {
    if (_wanted.empty()) {
      waitForWork(&lock);
      continue;
    }
    Queue place;
    place.splice(place.end(), _wanted, _wanted.begin());
    lock.unlock();
    bool isFinished = true;
    // Who asked may be gone; what it has of the file goes on this thread then.
    if (const auto answering = place.front().lock()) isFinished = workOn(answering.get());
    lock.lock();
    Queue& next = isFinished ? _finished : _wanted;
    next.splice(next.end(), place);
    if (isFinished) _handBack.wake();
  }
}

// The file is not held open for nothing: that would be in the way of who mends it.
void HistoryWorker::waitForWork(Lock* lock) {
  const auto isDue = [this] { return _isStopping || !_wanted.empty(); };
  if (_changed.wait_for(*lock, _limits.idle, isDue)) return;
  lock->unlock();
  _history.close();
  lock->lock();
  _changed.wait(*lock, isDue);
}

// Returns false when there is more to do for the piece.
bool HistoryWorker::workOn(Answering* answering) noexcept {
  Outcome& outcome = answering->outcome;
  try {
    std::optional<RowsReading>& reading = answering->reading;
    if (!reading) reading.emplace(_history, answering->question);
    if (reading->step())
      outcome = {reading->takePiece(), reading->isLast(), http_status::ok, reading->type()};
    else if (Clock::now() - answering->wantedSince < _limits.piece)
      return false;
    else
      outcome = failure(http_status::serviceUnavailable,
                        "it takes too long; ask for a shorter time, or for points");
  } catch (const WebError& error) {
    outcome = failure(error.status(), error.what());
  } catch (const std::bad_alloc&) {
    outcome = failure(http_status::serviceUnavailable, "");
  } catch (const std::exception& error) {
    outcome = failure(http_status::serviceUnavailable, error.what());
  }
  return true;
}

}  // namespace dch
