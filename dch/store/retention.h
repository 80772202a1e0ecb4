// retention.h: removes the oldest rows, whatever their group and their site, a few at a time, and
// groups that are not needed any more.
#ifndef DCH_STORE_RETENTION_H
#define DCH_STORE_RETENTION_H

#include <cstddef>
#include <cstdint>
#include <optional>

#include "dch/core/message.h"
#include "dch/store/change_writer.h"
#include "dch/store/sqlite.h"
#include "dch/store/store_settings.h"

namespace dch {

// One thread at a time.
class Retention {
 public:
  // How many positions, or rows of other sites, a step takes at most: some milliseconds, in which
  // rows wait.
  static constexpr std::int64_t stepRows = 2'000;
  // How many free pages stay for new rows when the file shrinks, and how many go in a step.
  static constexpr std::int64_t sparePages = 4'096;
  static constexpr std::int64_t stepPages = 256;

  // How many groups go in a step.
  static constexpr std::size_t stepGroups = 8;

  // `isPublished`: see SqliteStoreSettings.
  Retention(sqlite::Connection& connection, bool isPublished);

  // Removes some rows when a limit is passed, or else some groups, or else gives some free pages
  // back to the system, in a transaction of its own. Returns whether there may be more to do. When
  // this throws, `writer` is to be made anew.
  bool step(ChangeWriter* writer, const RetentionLimits& limits, Time now);

  // A change is in the file now. What deferrals and actions take is not taken from the rows: who
  // sends very many of them pushes none out.
  void noteKept(const Change& change) noexcept;
  // The same for sources of other sites: they are in the file now.
  void noteSources(const SourcesAdded& added) noexcept;

  // How many rows it has removed.
  std::int64_t removed() const { return _removed; }
  // Of those, how many of the server's own were still to be published.
  std::int64_t removedUnpublished() const { return _removedUnpublished; }

 private:
  bool removeTooMany(ChangeWriter* writer, std::int64_t usedBytes, std::int64_t mostBytes);
  bool removeTooOld(ChangeWriter* writer, Time keptSince);
  bool removeTooOldRemote(ChangeWriter* writer, Time keptSince);
  void remove(ChangeWriter* writer, std::int64_t first, std::int64_t count,
              std::optional<Time> before);
  bool removeGroups(ChangeWriter* writer);
  bool shrink(std::int64_t freePages);

  sqlite::Connection& _connection;
  sqlite::Statement _pageCount;
  sqlite::Statement _freePages;
  const std::int64_t _pageBytes;
  std::int64_t _recordBytes;  // of what stays for good
  const bool _isPublished;
  sqlite::Statement _noteUnpublished;
  std::int64_t _removed = 0;
  std::int64_t _removedUnpublished = 0;
};

}  // namespace dch

#endif  // DCH_STORE_RETENTION_H
