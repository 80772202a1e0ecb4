// kept_rows.h: what the web asks the store.
#ifndef DCH_WEB_KEPT_ROWS_H
#define DCH_WEB_KEPT_ROWS_H

#include <functional>
#include <optional>
#include <string>

#include "dch/core/message.h"
#include "dch/web/answer.h"

namespace dch {

// Which rows are wanted, and how.
struct RowsQuestion {
  std::string application;
  std::string group;
  std::optional<std::string> source;
  std::optional<Time> since;
  std::optional<Time> until;
  std::optional<std::size_t> limit;   // the newest so many
  std::optional<std::size_t> points;  // thinned to so many
  bool asCsv = false;
};

class KeptRows {
 public:
  virtual ~KeptRows() = default;

  // Answers, within the call or later, on the web's thread.
  virtual void answer(const RowsQuestion& question, std::function<void(Answer&&)> respond) = 0;
};

// Of a server that keeps none.
class NoKeptRows : public KeptRows {
 public:
  void answer(const RowsQuestion& question, std::function<void(Answer&&)> respond) override;
};

}  // namespace dch

#endif  // DCH_WEB_KEPT_ROWS_H
