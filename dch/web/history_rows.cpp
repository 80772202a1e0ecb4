#include "dch/web/history_rows.h"

#include <new>
#include <string_view>
#include <utility>

#include "dch/web/http_status.h"

namespace dch {

namespace {

constexpr std::string_view noMemoryForRows = "the server has no memory for it";

}  // namespace

// What follows the first piece.
class HistoryRows::Rest : public Pieces {
 public:
  Rest(HistoryWorker& worker, std::shared_ptr<HistoryWorker::Answering> answering,
       std::string&& first)
      : _worker(worker), _answering(std::move(answering)), _first(std::move(first)) {}

  void next(Take take) override {
    if (!_first.empty()) return take({{shareText(std::exchange(_first, {}))}});
    _worker.next(_answering, [take = std::move(take)](HistoryWorker::Outcome&& outcome) {
      take(pieceOf(std::move(outcome)));
    });
  }

 private:
  static Piece pieceOf(HistoryWorker::Outcome&& outcome) noexcept {
    using Follows = Piece::Follows;
    try {
      if (outcome.status == http_status::ok)
        return {{shareText(std::move(outcome.text))},
                outcome.isLast ? Follows::nothing : Follows::more};
    } catch (const std::bad_alloc&) {
      // Nobody is to wait for it.
    }
    return {{}, Follows::failure};
  }

  HistoryWorker& _worker;
  const std::shared_ptr<HistoryWorker::Answering> _answering;
  std::string _first;
};

void HistoryRows::answer(const RowsQuestion& question, std::function<void(Answer&&)> respond) {
  const std::shared_ptr<HistoryWorker::Answering> answering = _worker.begin(question);
  if (answering == nullptr)
    return respond(
        errorAnswer(http_status::serviceUnavailable, "too many ask for rows at the same time"));
  HistoryWorker::Answering* const key = answering.get();
  HistoryWorker::Take begin = [this, key,
                               respond = std::move(respond)](HistoryWorker::Outcome&& outcome) {
    auto mine = std::move(_pending.extract(key).mapped());
    try {
      respond(answerOf(std::move(outcome), std::move(mine)));
    } catch (const std::bad_alloc&) {
      respond(errorAnswer(http_status::serviceUnavailable, noMemoryForRows));
    }
  };
  _pending.emplace(key, answering);
  _worker.next(answering, std::move(begin));
}

Answer HistoryRows::answerOf(HistoryWorker::Outcome&& outcome,
                             std::shared_ptr<HistoryWorker::Answering>&& answering) {
  if (outcome.status != http_status::ok)
    return errorAnswer(outcome.status, outcome.text.empty() ? noMemoryForRows : outcome.text);
  if (outcome.isLast) return {.type = outcome.type, .body = shareText(std::move(outcome.text))};
  return {.type = outcome.type,
          .pieces = std::make_unique<Rest>(_worker, std::move(answering), std::move(outcome.text))};
}

}  // namespace dch
