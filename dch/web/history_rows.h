// history_rows.h: kept rows out of the state file.
#ifndef DCH_WEB_HISTORY_ROWS_H
#define DCH_WEB_HISTORY_ROWS_H

#include <functional>
#include <memory>
#include <unordered_map>
#include <utility>

#include "dch/net/event_loop.h"
#include "dch/store/file_place.h"
#include "dch/web/history_worker.h"
#include "dch/web/kept_rows.h"

namespace dch {

// A slow disk holds up those who ask for rows, and nobody else. A piece of an answer is made when
// the one before is sent. One thread, the web's.
class HistoryRows : public KeptRows {
 public:
  // As HistoryWorker.
  HistoryRows(EventLoop& loop, std::function<StatePlaces()> places,
              const HistoryLimits& limits = {})
      : _worker(loop, std::move(places), limits) {}

  void answer(const RowsQuestion& question, std::function<void(Answer&&)> respond) override;

 private:
  class Rest;

  Answer answerOf(HistoryWorker::Outcome&& outcome,
                  std::shared_ptr<HistoryWorker::Answering>&& answering);

  // Those whose answer has not begun. They go on the web's thread, after the worker.
  std::unordered_map<HistoryWorker::Answering*, std::shared_ptr<HistoryWorker::Answering>> _pending;
  HistoryWorker _worker;
};

}  // namespace dch

#endif  // DCH_WEB_HISTORY_ROWS_H
