#include "dch/web/history_worker.h"

#include <exception>
#include <new>

#include "dch/web/give_way.h"
#include "dch/web/http_status.h"
#include "dch/web/web_error.h"

namespace dch {

namespace {

HistoryWorker::Outcome failure(int status, const char* sentence) {
  return {sentence, true, status};
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

 private:
  const std::shared_ptr<std::atomic<std::size_t>> _count;
};

HistoryWorker::HistoryWorker(EventLoop& loop, std::function<StatePlaces()> places,
                             const HistoryLimits& limits)
    : _limits(limits),
      _history(std::move(places)),
      _finished(loop, [this] { handBack(); }),
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
  return std::make_shared<Answering>(question, _questions);
}

void HistoryWorker::next(const std::shared_ptr<Answering>& answering, Take take) {
  answering->take = std::move(take);
  answering->wantedSince = Clock::now();
  {
    const std::lock_guard lock(_mutex);
    _wanted.emplace_back(answering);
  }
  _changed.notify_one();
}

void HistoryWorker::handBack() {
  decltype(_outcomes) outcomes;
  {
    const std::lock_guard lock(_mutex);
    outcomes.swap(_outcomes);
  }
  for (auto& [weak, outcome] : outcomes)
    if (const auto answering = weak.lock())
      std::exchange(answering->take, nullptr)(std::move(outcome));
}

void HistoryWorker::run() noexcept {
  giveWay();
  Lock lock(_mutex);
  while (!_isStopping) {
    if (_wanted.empty()) {
      waitForWork(&lock);
      continue;
    }
    const std::weak_ptr<Answering> next = std::move(_wanted.front());
    _wanted.pop_front();
    lock.unlock();
    // Who asked may be gone; what it has of the file goes on this thread then.
    if (auto answering = next.lock()) {
      std::optional<Outcome> outcome = workOn(answering.get());
      answering.reset();
      lock.lock();
      if (outcome)
        _outcomes.emplace_back(next, std::move(*outcome));
      else
        _wanted.push_back(next);
      if (outcome) _finished.wake();
    } else {
      lock.lock();
    }
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

// Returns nothing when there is more to do for the piece.
std::optional<HistoryWorker::Outcome> HistoryWorker::workOn(Answering* answering) {
  try {
    std::optional<RowsReading>& reading = answering->reading;
    if (!reading) reading.emplace(_history, answering->question);
    if (reading->step())
      return Outcome{reading->takePiece(), reading->isLast(), http_status::ok, reading->type()};
    if (Clock::now() - answering->wantedSince < _limits.piece) return std::nullopt;
    return failure(http_status::serviceUnavailable,
                   "it takes too long; ask for a shorter time, or for points");
  } catch (const WebError& error) {
    return failure(error.status(), error.what());
  } catch (const std::bad_alloc&) {
    return failure(http_status::serviceUnavailable, "the server has no memory for it");
  } catch (const std::exception& error) {
    return failure(http_status::serviceUnavailable, error.what());
  }
}

}  // namespace dch
