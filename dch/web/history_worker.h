// history_worker.h: reads kept rows on a thread of its own.
#ifndef DCH_WEB_HISTORY_WORKER_H
#define DCH_WEB_HISTORY_WORKER_H

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include "dch/net/event_loop.h"
#include "dch/net/waker.h"
#include "dch/store/file_place.h"
#include "dch/store/history.h"
#include "dch/web/http_status.h"
#include "dch/web/kept_rows.h"
#include "dch/web/rows_reading.h"

namespace dch {

struct HistoryLimits {
  std::size_t questions = 64;               // at a time
  std::chrono::milliseconds piece{10'000};  // from when one is wanted until it is there
  std::chrono::milliseconds idle{1'000};    // until the file is closed
};

// Questions take turns, some milliseconds each. One thread, the web's.
class HistoryWorker {
 public:
  // What has become of a wish for a piece of an answer.
  struct Outcome {
    std::string text;
    bool isLast = false;
    // Of HTTP; for another one the text is a sentence, empty where there was no memory for one.
    int status = http_status::ok;
    const char* type = nullptr;  // of the content
  };
  using Take = std::function<void(Outcome&&)>;

  // A question that is being answered.
  class Answering;

  // `places` as of History. `loop` is the web's. Throws std::system_error or std::bad_alloc.
  HistoryWorker(EventLoop& loop, std::function<StatePlaces()> places, const HistoryLimits& limits);
  // Nothing is taken any more.
  ~HistoryWorker();
  HistoryWorker(const HistoryWorker&) = delete;
  HistoryWorker& operator=(const HistoryWorker&) = delete;

  // Null when there are too many. Dropped, it is answered no further.
  std::shared_ptr<Answering> begin(const RowsQuestion& question);

  // `take` is called later with the next piece, unless the question was dropped. One piece at a
  // time.
  void next(const std::shared_ptr<Answering>& answering, Take take) noexcept;

 private:
  using Lock = std::unique_lock<std::mutex>;
  using Clock = std::chrono::steady_clock;
  // Each question has a place from its beginning on: to move it from one to the other takes no
  // memory.
  using Queue = std::list<std::weak_ptr<Answering>>;

  void handBack();

  void run() noexcept;
  void waitForWork(Lock* lock);
  bool workOn(Answering* answering) noexcept;

  const HistoryLimits _limits;
  History _history;
  Waker _handBack;
  const std::shared_ptr<std::atomic<std::size_t>> _questions;

  std::mutex _mutex;  // guards what follows
  std::condition_variable _changed;
  Queue _wanted;
  Queue _finished;
  bool _isStopping = false;

  std::thread _thread;
};

}  // namespace dch

#endif  // DCH_WEB_HISTORY_WORKER_H
