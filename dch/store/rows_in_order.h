// rows_in_order.h: the rows of all groups in the state file, in the order in which they were kept.
#ifndef DCH_STORE_ROWS_IN_ORDER_H
#define DCH_STORE_ROWS_IN_ORDER_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "dch/core/epoch.h"
#include "dch/core/message.h"
#include "dch/core/row_name.h"
#include "dch/store/file_place.h"
#include "dch/store/history.h"
#include "dch/store/sqlite.h"
#include "zora/zora.h"

namespace dch {

// Valid until the function that takes it returns. Names are bytes, of no known encoding.
struct OrderedRow {
  RowName name;
  // Retention has removed rows before this one, and behind those that were told and that it
  // follows, which were to be published still: this is the last of them.
  std::optional<RowName> removed;
  Time time = 0;
  ZORA_Long handle = 0;
  std::string_view application;
  std::string_view group;
  std::string_view source;
  std::string_view message;
};

// With a connection of its own, as History has. Between its passes it holds nothing of the file, so
// that checkpoints get done. One thread, but for what says otherwise.
class RowsInOrder {
 public:
  using Take = std::function<void(const OrderedRow&)>;

  // `places` and `vfs`: see History.
  explicit RowsInOrder(std::function<StatePlaces()> places, const char* vfs = nullptr);

  // Of a pass. A row is told however large it is.
  struct Limits {
    std::size_t rows = 1'024;
    std::size_t bytes = 1'048'576;  // of messages
  };
  struct Pass {
    // Everything up to here that is behind `after` was told, but for what retention had removed: no
    // other row is ever going to have such a number. A pass that ends early ends with the last row
    // that it has told, others with the last change in the file.
    std::int64_t upTo = 0;
    Epoch epoch{};  // of that place
    // It has ended early, at a limit or when historyStepTime was over: there is more at once.
    bool isCut = false;
  };
  // Tells the rows with numbers behind `after`, from one state of the file: one group after the
  // other, each as it was at another time, would miss those that come in between. Throws
  // HistoryError, and what `take` throws.
  Pass read(std::int64_t after, const Limits& limits, const Take& take);

  // Among all that the store has kept; the epoch is none when the file does not know it any more,
  // as nothing so old is in it.
  struct Place {
    std::int64_t position = 0;
    std::optional<Epoch> epoch;
  };
  // What the last RowsPublished said that was kept. Throws HistoryError.
  Place published();
  // The last row up to there; nothing when there is none any more. Throws HistoryError.
  std::optional<RowName> lastRowUpTo(std::int64_t position);
  // The furthest place up to which those have all rows who have them up to these names; 0 when the
  // file knows none of their epochs. Of an epoch that went further before an older copy of the file
  // was put in place, its end in the file counts. Throws HistoryError.
  Place placeOf(const std::vector<RowName>& names);

  // See History.
  void close() noexcept;
  // See History. Any thread.
  void interrupt() noexcept { _history.interrupt(); }

 private:
  struct Group {
    std::string application;
    std::string name;
    std::string table;
    sqlite::Statement rows;  // with the number behind which they begin
  };
  // The next row of a group.
  struct Next {
    std::int64_t number;
    Group* group;

    friend bool operator>(const Next& left, const Next& right) {
      return left.number > right.number;
    }
  };
  class Snapshot;

  template <class Task>
  void work(Task task);
  void forget() noexcept;
  void knowGroups(sqlite::Connection& connection);
  void begin(std::int64_t after);
  Pass merge(std::int64_t after, const Limits& limits, const Take& take);
  std::int64_t removedBehind(std::int64_t after);
  RowName removedBefore(const RowName& row, std::int64_t number);
  std::int64_t readEpoch(std::int64_t position, Epoch* epoch);
  void stepFirst();

  History _history;
  // Of the connection that is open. IDs of groups are used again: what they mean is known for the
  // version of the schema that it was read with.
  std::int64_t _schemaVersion = -1;
  std::vector<Group> _groups;
  sqlite::Statement _source;   // of a handle
  sqlite::Statement _removed;  // what retention has, behind a position
  sqlite::Statement _epoch;    // of a position
  std::vector<Next> _next;     // a heap: the lowest number in front
};

}  // namespace dch

#endif  // DCH_STORE_ROWS_IN_ORDER_H
