// change_writer.h: writes changes into the database, each at its position.
#ifndef DCH_POSTGRES_CHANGE_WRITER_H
#define DCH_POSTGRES_CHANGE_WRITER_H

#include <cstdint>

#include "dch/core/change.h"
#include "dch/core/epoch.h"
#include "dch/postgres/groups.h"
#include "dch/postgres/remote_tables.h"
#include "dch/store/remote_writer.h"

namespace dch::pg {

// What it knows is what is in the database; after a transaction that did not succeed it is made
// anew. One thread at a time.
class ChangeWriter {
 public:
  // What it writes is of this epoch. Positions up to `usedPosition` are not used again.
  ChangeWriter(Connection& connection, const Epoch& epoch, std::int64_t usedPosition);

  // The highest position that is in use.
  std::int64_t position() const { return _position; }
  // The number of the last transaction that is kept.
  std::int64_t transaction() const { return _transaction; }

  // In a transaction. Returns false when the database does not take such a change; nothing of it is
  // written then. Fills in what the change says that the store does.
  bool write(Change* change);
  // In the same transaction, behind its last change: the database has it when its state has the
  // next number.
  void finish();
  // The transaction is kept.
  void committed() { ++_transaction; }

  // Of other sites, for want of room for their groups, since it was asked last.
  RemoteWriter::RowsRefused takeRowsRefused() { return _remote.takeRowsRefused(); }

 private:
  void usePosition();
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

  Connection& _connection;
  const Epoch _epoch;
  bool _isEpochDue = true;  // the next change is the first one of its epoch
  std::int64_t _position = 0;
  std::int64_t _transaction = 0;
  Groups _groups;
  RemotePlaceTables _remoteTables;
  RemoteSourceRows _remoteSources;
  RemoteWriter _remote;
};

}  // namespace dch::pg

#endif  // DCH_POSTGRES_CHANGE_WRITER_H
