// group_writer.h: writes groups of changes into the database, and goes on by itself after a
// failure.
#ifndef DCH_POSTGRES_GROUP_WRITER_H
#define DCH_POSTGRES_GROUP_WRITER_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "dch/core/change.h"
#include "dch/core/epoch.h"
#include "dch/postgres/change_writer.h"
#include "dch/postgres/database.h"
#include "dch/store/store_figures.h"

namespace dch::pg {

// How long things are waited for.
struct Patience {
  Connection::Duration longestWait{10'000};  // for each answer of the server
  // For the server, when it has not answered whether a group is kept.
  std::chrono::milliseconds longestDoubt{30'000};
  // After it could not be reached.
  std::chrono::milliseconds pause{1'000};
};

// One thread, but for what says otherwise.
class GroupWriter {
 public:
  // Opens the database. What it writes is of this epoch. Throws Error.
  GroupWriter(std::string target, const Epoch& epoch, const Patience& patience);
  GroupWriter(const GroupWriter&) = delete;
  GroupWriter& operator=(const GroupWriter&) = delete;

  // In which what was kept is found. Not after a failure.
  Connection& connection() { return _database->connection(); }

  // Of all that it writes. Any thread.
  const Epoch& epoch() const { return _epoch; }

  struct Item {
    Change* change;
    bool isKept;
  };
  // Writes all changes in one transaction and tells which of them are kept. When the server refuses
  // one for what is in it, each is written in a transaction of its own. When it is lost before it
  // has answered whether they are kept, what is in the database decides; while it cannot be reached
  // for too long they count as not kept.
  void write(std::vector<Item>* group) noexcept;

  // To be called also when there is nothing to write, now and then while not all is well: what has
  // ended is told then, too. Returns whether all is well.
  bool look() noexcept;

  // Any thread.
  StoreFigures figures() const;
  // Lines for the operator: when something begins to fail, and when it ends. Any thread.
  std::vector<std::string> takeEvents();
  bool hasEvents() const;

 private:
  using Clock = std::chrono::steady_clock;
  using Items = std::span<Item>;

  struct Failure {
    const char* reason;
    bool isOfValues;  // the server does not take what was to be written
    bool isInDoubt;   // it was told to commit
  };

  void open();
  bool isOpen() noexcept;
  void makeWriter();
  bool tryToWrite(Items items) noexcept;
  void writeAll(Items items, bool* isInDoubt);
  bool fail(const Failure& failure, Items items) noexcept;
  bool isInDatabase(std::int64_t transaction) noexcept;
  void noteRefused(Items items) noexcept;
  void begin(const char* reason) noexcept;
  void end() noexcept;
  template <class... Parts>
  void tell(const Parts&... parts) noexcept;

  const std::string _target;
  const Epoch _epoch;
  const Patience _patience;
  std::optional<Database> _database;    // none when it cannot be reached
  std::optional<ChangeWriter> _writer;  // none after a failure
  std::int64_t _position = 0;           // the highest that was ever used
  std::uint64_t _registrationsRefused = 0;
  std::uint64_t _rowsRefused = 0;  // of other sites
  std::uint64_t _valuesRefused = 0;
  Clock::time_point _nextTry;   // to open the database
  Clock::time_point _nextLook;  // whether it is written again
  bool _isFailing = false;

  mutable std::mutex _mutex;
  StoreFigures _figures;
  std::vector<std::string> _events;
};

}  // namespace dch::pg

#endif  // DCH_POSTGRES_GROUP_WRITER_H
