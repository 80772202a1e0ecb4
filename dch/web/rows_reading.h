// rows_reading.h: the answer to a question for kept rows, made piece by piece.
#ifndef DCH_WEB_ROWS_READING_H
#define DCH_WEB_ROWS_READING_H

#include <cstddef>
#include <memory>
#include <optional>
#include <string>

#include "dch/store/history.h"
#include "dch/store/rows_query.h"
#include "dch/store/thinned_query.h"
#include "dch/web/kept_rows.h"
#include "dch/web/rows_text.h"

namespace dch {

// One thread, that of the history.
class RowsReading {
 public:
  // A piece has about so many bytes.
  static constexpr std::size_t pieceBytes = 131'072;

  // `history` outlives it.
  RowsReading(History& history, RowsQuestion question);

  // Works for a moment. Returns whether a piece is there, to be taken before the next call. Throws
  // WebError, HistoryError or std::bad_alloc, and is not called again then.
  bool step();

  bool isLast() const { return _isLast; }
  std::string takePiece() { return _text->take(); }
  const char* type() const { return _text->type(); }

 private:
  void begin();
  std::optional<ZORA_Long> find(const HistoryGroup& group);
  void write(const HistoryRow& row);
  void write(const ThinnedPoint& point);
  void writePoints();

  History& _history;
  const RowsQuestion _question;
  const std::unique_ptr<RowsText> _text;
  std::optional<RowsQuery> _rows;
  std::optional<ThinnedQuery> _points;
  bool _isLast = false;
};

}  // namespace dch

#endif  // DCH_WEB_ROWS_READING_H
