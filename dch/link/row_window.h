// row_window.h: the rows that are on their way to the stream.
#ifndef DCH_LINK_ROW_WINDOW_H
#define DCH_LINK_ROW_WINDOW_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <utility>

namespace dch {

struct OutgoingRow {
  std::int64_t number = 0;
  std::string subject;
  std::string id;  // by which the stream knows a row that it has; empty: none
  std::string header;
  std::string message;
};

struct RowWindowLimits {
  std::size_t rows = 4'096;
  std::size_t bytes = 8 << 20;                // one row may go beyond
  std::chrono::milliseconds patience{2'000};  // without an answer, then a row is sent again
  std::chrono::milliseconds pause{500};       // after a refusal
};

// Decides which row is sent next, which again, and how far all are done, so that the stream takes
// each at least once, whatever is lost, doubled, late or out of order on the way. Knows no clock,
// no thread and no network.
class RowWindow {
 public:
  using Limits = RowWindowLimits;
  using TimePoint = std::chrono::steady_clock::time_point;

  // What comes is behind `published`.
  explicit RowWindow(std::int64_t published, const Limits& limits = {});

  // To be asked before each row is added. An empty window always has room for one.
  bool hasRoom() const;

  // Numbers ascend: throws std::invalid_argument for one up to which all is known. `isNew`: no
  // earlier run can have sent the row, so what the stream has by its ID at first is another row.
  // Throws std::bad_alloc, and is then as before; nothing else asks for memory.
  void add(OutgoingRow&& row, bool isNew);

  // Up to there are no rows but those that were added.
  void settle(std::int64_t upTo);

  // The row of the lowest number that is to be sent now, or again; null when none is. It counts as
  // sent, and stays where it is until the next call that is not const.
  const OutgoingRow* takeNext(TimePoint now);

  // When takeNext gives one if nothing else happens: past when it does so at once, max() for never.
  TimePoint nextDue() const;

  // The stream has it. False: nothing was waited for, as the answer is late, or of no row that was
  // sent.
  bool taken(std::int64_t number);

  // The stream says that it has a row of this ID already. True: that was this one. A new row that
  // was sent once only is sent again without an ID instead.
  bool duplicate(std::int64_t number);

  // It could not be taken now, and is to be sent again after a pause.
  void refused(std::int64_t number, TimePoint now);

  // The stream will never take it. It counts as done.
  void giveUp(std::int64_t number);

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
    bool isNew = false;
    unsigned timesSent = 0;
    TimePoint due = atOnce;
  };
  using Rows = std::map<std::int64_t, Waiting>;
  using Due = std::pair<TimePoint, std::int64_t>;

  // Differences to other times have to be numbers, too, which those of min() are not.
  static constexpr TimePoint atOnce{};

  // end() when it is none that an answer can be for.
  Rows::iterator findSent(std::int64_t number);
  void setDue(Rows::iterator place, TimePoint due);
  void remove(Rows::iterator place);

  Limits _limits;
  std::int64_t _knownUpTo;  // no row comes any more up to there
  Rows _rows;               // not done
  std::set<Due> _due;       // when each of them is to be sent, then by number
  std::size_t _bytes = 0;   // of them all
};

}  // namespace dch

#endif  // DCH_LINK_ROW_WINDOW_H
