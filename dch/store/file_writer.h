// file_writer.h: writes groups of changes into the state file, keeps it in shape, and goes on by
// itself after a failure.
#ifndef DCH_STORE_FILE_WRITER_H
#define DCH_STORE_FILE_WRITER_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "dch/store/change_writer.h"
#include "dch/store/retention.h"
#include "dch/store/state_file.h"
#include "dch/store/store_figures.h"

namespace dch {

// As how many changes it counts by what it takes to write it.
inline std::size_t weightOf(const Change& change) {
  const auto* const remote = std::get_if<RemoteRows>(&change);
  return remote != nullptr ? remote->rows.size() + 1 : 1;
}

// One thread, but for what says otherwise.
class FileWriter {
 public:
  // While changes come it is seen to retention after so many of them or so long, and after so long
  // whether the file is in its place. Each row of another site counts.
  static constexpr std::size_t changesBetweenLooks = 1'000;
  static constexpr std::chrono::milliseconds timeBetweenLooks{100};

  // A checkpoint is made when the log of SQLite has `checkpointPages`. `now` may be null for the
  // system's clock. `epoch` and `isPublished`: see SqliteStoreSettings. Throws sqlite::Error.
  FileWriter(StateFile& file, const Epoch& epoch, int checkpointPages, std::function<Time()> now,
             bool isPublished);
  FileWriter(const FileWriter&) = delete;
  FileWriter& operator=(const FileWriter&) = delete;

  // Of all that it writes. Any thread.
  const Epoch& epoch() const { return _epoch; }

  // What is in the file. Not after a failure.
  const ChangeWriter& known() const { return *_writer; }

  struct Item {
    Change* change;
    bool isKept;
  };
  // Writes all changes in one transaction and tells which of them are kept: they are in the file,
  // and the others are not as far as it can tell. While the file is not where the next server looks
  // for it nothing is kept.
  void write(std::vector<Item>* group) noexcept;

  // Does some of what keeps the file in shape, bounded so that changes do not wait for long.
  // `isIdle`: none waits. Returns whether there may be more to do.
  bool tidy(const RetentionLimits& limits, bool isIdle) noexcept;

  // Whether it is time for tidy(), though changes come.
  bool isTidyingDue() const { return _logPages >= _nextCheckpoint || isLookDue(false); }

  // Any thread.
  StoreFigures figures() const;
  // Lines for the operator: when something begins to fail, and when it ends. Any thread.
  std::vector<std::string> takeEvents();
  bool hasEvents() const;

 private:
  // Something that fails again and again until it ends.
  struct Trouble {
    const char* whatBegins;
    const char* whatEnds;
    bool isOn = false;
  };

  bool isInPlace() noexcept;
  bool tryToWrite(std::vector<Item>* group) noexcept;
  void makeWriter();
  std::int64_t writeAll(std::vector<Item>* group);
  void noteRowsRefused(const RemoteWriter::RowsRefused& refused);
  void tellRefused(const std::string& room, const std::string& what, std::uint64_t more,
                   std::uint64_t* refused);
  bool recover(std::int64_t position) noexcept;
  void takeOutOfLog();
  void tryToWriteAgain() noexcept;
  bool isFailing() const { return _place.isOn || _writing.isOn; }
  bool isLookDue(bool isIdle) const;
  void noteLog(int pages);
  bool checkpoint();
  void begin(Trouble* trouble, const char* reason) noexcept;
  void end(Trouble* trouble) noexcept;
  void tell(const char* what, const char* reason) noexcept;

  StateFile& _file;
  const Epoch _epoch;
  const int _checkpointPages;
  const std::function<Time()> _now;
  std::optional<ChangeWriter> _writer;  // none after a failure
  Retention _retention;
  std::int64_t _position = 0;  // the highest that was ever used
  RetentionLimits _limits;
  // For want of room for their groups.
  std::uint64_t _refused = 0;
  std::uint64_t _rowsRefused = 0;  // of other sites
  std::size_t _changesSinceLook = 0;
  std::chrono::steady_clock::time_point _lastLook;
  bool _hasMoreToTidy = true;
  int _logPages = 0;
  int _nextCheckpoint = _checkpointPages;
  int _triesOfCheckpoint = 0;
  bool _isLogDone = false;  // by a checkpoint, since the last commit
  std::chrono::steady_clock::time_point _lastLookAtPlace;
  std::chrono::steady_clock::time_point _patientFrom;  // with other programs that write
  Trouble _place{"takes nothing more", "takes changes again"};
  Trouble _writing{"cannot be written", "is written again"};
  Trouble _tidying{"cannot be tidied, and rows may stay for longer than they should",
                   "is tidied again"};

  mutable std::mutex _mutex;
  StoreFigures _figures;
  std::vector<std::string> _events;
};

}  // namespace dch

#endif  // DCH_STORE_FILE_WRITER_H
