#include "dch/web/history_rows.h"

#include <utility>

#include "dch/web/http_status.h"

namespace dch {

// What follows the first piece.
class HistoryRows::Rest : public Pieces {
 public:
  Rest(HistoryWorker& worker, std::shared_ptr<HistoryWorker::Answering> answering,
       std::string&& first)
      : _worker(worker), _answering(std::move(answering)), _first(std::move(first)) {}

  void next(Take take) override {
    if (!_first.empty()) return take({{shareText(std::exchange(_first, {}))}});
    _worker.next(_answering, [take = std::move(take)](HistoryWorker::Outcome&& outcome) {
      using Follows = Piece::Follows;
      if (outcome.status != http_status::ok) return take({{}, Follows::failure});
      take({{shareText(std::move(outcome.text))},
            outcome.isLast ? Follows::nothing : Follows::more});
    });
  }

 private:
  HistoryWorker& _worker;
  const std::shared_ptr<HistoryWorker::Answering> _answering;
  std::string _first;
};

void HistoryRows::answer(const RowsQuestion& question, std::function<void(Answer&&)> respond) {
  std::shared_ptr<HistoryWorker::Answering> answering = _worker.begin(question);
  if (answering == nullptr)
    return respond(
        errorAnswer(http_status::serviceUnavailable, "too many ask for rows at the same time"));
  HistoryWorker::Answering* const key = answering.get();
  _pending.emplace(key, answering);
  _worker.next(answering, [this, key,
                           respond = std::move(respond)](HistoryWorker::Outcome&& outcome) {
    std::shared_ptr<HistoryWorker::Answering> mine = std::move(_pending.extract(key).mapped());
    if (outcome.status != http_status::ok)
      return respond(errorAnswer(outcome.status, outcome.text));
    if (outcome.isLast)
      return respond({.type = outcome.type, .body = shareText(std::move(outcome.text))});
    respond({.type = outcome.type,
             .pieces = std::make_unique<Rest>(_worker, std::move(mine), std::move(outcome.text))});
  });
}

}  // namespace dch
