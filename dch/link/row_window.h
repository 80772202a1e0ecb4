// row_window.h: the rows that are on their way to the stream.
#ifndef DCH_LINK_ROW_WINDOW_H
#define DCH_LINK_ROW_WINDOW_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <utility>

#include "dch/link/outgoing_row.h"

namespace dch {

struct RowWindowLimits {
  std::size_t rows = 4'096;
  std::size_t bytes = 8 << 20;                // one row may go beyond
  std::chrono::milliseconds patience{2'000};  // without an answer, then a row is sent again
  std::chrono::milliseconds pause{500};       // between tries while the stream refuses
};

// Decides which row is sent next, which again, and how far all are done, so that the stream takes
// each at least once, whatever is lost, doubled, late or out of order on the way. The ID of a row
// is its own for ever: when the stream has that ID, it has this row. Knows no clock, no thread and
// no network.
//
// A stream that refuses one row, as it is full or has no leader, refuses the others, too. It is
// then tried with the lowest row only, once each pause, answered or not, until it takes any row or
// the connection is lost. A further refusal does not put the next try off: those of rows that were
// on their way may go on for long.
class RowWindow {
 public:
  using Limits = RowWindowLimits;
  using TimePoint = std::chrono::steady_clock::time_point;

  // What comes is behind `published`.
  explicit RowWindow(std::int64_t published, const Limits& limits = {});

  // To be asked before each row is added. An empty window always has room for one.
  bool hasRoom() const;

  // Numbers ascend: throws std::invalid_argument for one up to which all is known. Throws
  // std::bad_alloc, and is then as before; nothing else asks for memory.
  void add(OutgoingRow&& row);

  // Up to there are no rows but those that were added.
  void settle(std::int64_t upTo);

  // The row of the lowest number that is to be sent now, or again; null when none is. It counts as
  // sent, and stays where it is until the next call that is not const.
  const OutgoingRow* takeNext(TimePoint now);

  // When takeNext gives one if nothing else happens: past when it does so at once, max() for never.
  TimePoint nextDue() const;

  // The stream has it, from now on or already. False: nothing was waited for, as the answer is
  // late, or of no row that was sent.
  bool taken(std::int64_t number);

  // The stream takes no rows now: not this one, which is to be sent again, or 0 when it is not
  // known which.
  void refused(std::int64_t number, TimePoint now);

  // The stream will never take it: it is done. False: it was already.
  bool giveUp(std::int64_t number);

  // Answers that were due will not come: all that wait are to be sent again.
  void disconnected();

  // Everything up to there is done. Never becomes less.
  std::int64_t published() const;

  std::size_t waiting() const { return _rows.size(); }
  bool empty() const { return _rows.empty(); }

 private:
  struct Waiting {
    OutgoingRow row;
    std::size_t bytes = 0;
    bool wasSent = false;
    TimePoint due = atOnce;
  };
  using Rows = std::map<std::int64_t, Waiting>;
  using Due = std::pair<TimePoint, std::int64_t>;

  // Differences to other times have to be numbers, too, which those of min() are not.
  static constexpr TimePoint atOnce{};

  // end() when none is to be sent now.
  Rows::iterator nextToTry(TimePoint now);
  Rows::iterator lowestDue(TimePoint now);
  void setDue(Rows::iterator place, TimePoint due);
  void remove(Rows::iterator place);

  Limits _limits;
  std::int64_t _knownUpTo;            // no row comes any more up to there
  Rows _rows;                         // not done
  std::set<Due> _due;                 // when each of them is to be sent, then by number
  std::size_t _bytes = 0;             // of them all
  std::optional<TimePoint> _nextTry;  // while the stream refuses
};

}  // namespace dch

#endif  // DCH_LINK_ROW_WINDOW_H
