// change_writer.h: writes changes into the file, in their order.
#ifndef DCH_STORE_CHANGE_WRITER_H
#define DCH_STORE_CHANGE_WRITER_H

#include <cstddef>
#include <cstdint>

#include "dch/core/change.h"
#include "dch/store/clock_steps.h"
#include "dch/store/epoch_table.h"
#include "dch/store/file_remote_sources.h"
#include "dch/store/file_remote_tables.h"
#include "dch/store/newest_rows.h"
#include "dch/store/providers.h"
#include "dch/store/remote_writer.h"
#include "dch/store/sqlite.h"

namespace dch {

// What it knows is what is in the file; after a transaction that did not succeed it is made anew.
// One thread at a time.
class ChangeWriter {
 public:
  // What it writes is of this epoch.
  ChangeWriter(sqlite::Connection& connection, const Epoch& epoch);

  const Providers& providers() const { return _providers; }
  const NewestRows& newestRows() const { return _newestRows; }
  NewestRows& newestRows() { return _newestRows; }
  ClockSteps& clockSteps() { return _clockSteps; }
  EpochTable& epochs() { return _epochs; }

  // The highest position that is kept.
  std::int64_t keptPosition() const { return _newestRows.position(); }
  // Positions up to this one are not used again.
  void skipTo(std::int64_t position);

  // In a transaction. Returns false when the file does not take such a change; nothing of it is
  // written then. Fills in what the change says that the store does.
  bool write(Change* change);
  // In the same transaction, behind its last change. Returns the highest position it used, 0 when
  // it used none.
  std::int64_t finish();
  // The transaction is kept.
  void committed();

  // Of other sites, for want of room for their groups, since it was asked last.
  RemoteWriter::RowsRefused takeRowsRefused() { return _remote.takeRowsRefused(); }

  // Of other sites, in transactions since it was asked last.
  SourcesAdded takeSourcesAdded() { return _remote.takeSourcesAdded(); }

  // In a transaction of its own: removes some of the groups that are not needed any more.
  void removeUnusedGroups(std::size_t most);

 private:
  void usePosition(bool isToldByRow);
  bool write(const Registered& change);
  bool write(const Unregistered& change);
  bool write(const WentOnline& change);
  bool write(const WentOffline& change);
  bool write(const Row& change);
  bool write(const Deferred& change);
  bool write(const ActionStarted& change);
  bool write(const ActionEnded& change);
  bool write(const RowsPublished& change);
  bool write(const RemoteRows& change);
  bool write(const StreamRead& change);
  bool write(RemoteSourceSeen& change);

  Providers _providers;
  NewestRows _newestRows;
  ClockSteps _clockSteps;
  EpochTable _epochs;
  FileRemoteTables _remoteTables;
  FileRemoteSources _remoteSources;
  RemoteWriter _remote;
  std::int64_t _position;
  bool _positionIsDue = false;  // a change has used one that no row tells
  sqlite::Statement _defer;
  sqlite::Statement _startAction;
  sqlite::Statement _endAction;
  sqlite::Statement _publish;
};

}  // namespace dch

#endif  // DCH_STORE_CHANGE_WRITER_H
