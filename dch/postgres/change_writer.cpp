#include "dch/postgres/change_writer.h"

#include <algorithm>

namespace dch::pg {

namespace {

bool takesPosition(const Change& change) {
  return !std::holds_alternative<RowsPublished>(change) &&
         !std::holds_alternative<StreamRead>(change) &&
         !std::holds_alternative<RemoteSourceSeen>(change);
}

}  // namespace

ChangeWriter::ChangeWriter(Connection& connection, const Epoch& epoch, std::int64_t usedPosition)
    : _connection(connection),
      _epoch(epoch),
      _groups(connection),
      _remoteTables(connection, _groups),
      _remoteSources(connection),
      _remote(_remoteTables, _remoteSources) {
  const Result state = connection.run("SELECT position, transaction FROM zordchd_state");
  _position = std::max(usedPosition, state.number(0, 0));
  _transaction = state.number(0, 1);
  const Result newest =
      connection.run("SELECT epoch FROM epochs ORDER BY first_position DESC LIMIT 1");
  _isEpochDue = newest.rows() == 0 || epochOf(newest.bytes(0, 0)) != epoch;
}

bool ChangeWriter::write(Change* change) {
  if (takesPosition(*change)) usePosition();
  return std::visit([this](auto& each) { return write(each); }, *change);
}

void ChangeWriter::usePosition() {
  ++_position;
  if (!_isEpochDue) return;
  _connection.runPrepared("INSERT INTO epochs VALUES ($1, $2)",
                          Parameters().add(_position).addBytes(bytesOf(_epoch)));
  _isEpochDue = false;
}

bool ChangeWriter::write(const Registered& change) {
  return _groups.write(change, _position);
}

bool ChangeWriter::write(const Unregistered& change) {
  _groups.write(change);
  return true;
}

bool ChangeWriter::write(const WentOnline& change) {
  return _groups.write(change, _position);
}

bool ChangeWriter::write(const WentOffline& change) {
  _groups.write(change);
  return true;
}

bool ChangeWriter::write(const Row& change) {
  RowTable* const table = _groups.tableOf(change.handle);
  if (table == nullptr) return false;
  table->insert(_position, change.handle, change.time, change.message, true);
  return true;
}

bool ChangeWriter::write(const Deferred& change) {
  const Deferral& deferral = change.deferral.front();
  _connection.runPrepared("INSERT INTO kept_deferrals VALUES ($1, $2, $3, $4, $5, $6, $7)",
                          Parameters()
                              .add(_position)
                              .add(std::int64_t{deferral.actionId})
                              .add(std::int64_t{deferral.peltaObject})
                              .add(std::int64_t{deferral.currentTime})
                              .addBytes(deferral.applKey)
                              .addBytes(deferral.tableName)
                              .addBytes(deferral.sourceName));
  return true;
}

bool ChangeWriter::write(const ActionStarted& change) {
  _connection.runPrepared(
      "INSERT INTO kept_actions (position, id, name, owner, started_us) VALUES ($1, $2, $3, $4, "
      "$5)",
      Parameters()
          .add(_position)
          .add(std::int64_t{change.id})
          .addBytes(change.name)
          .addBytes(change.owner)
          .add(change.time));
  return true;
}

bool ChangeWriter::write(const ActionEnded& change) {
  _connection.runPrepared(
      "UPDATE kept_actions SET end_position = $1, ended_us = $2, result = $3 "
      "WHERE position = (SELECT max(position) FROM kept_actions WHERE id = $4)",
      Parameters()
          .add(_position)
          .add(change.time)
          .add(std::int64_t{change.status})
          .add(std::int64_t{change.id}));
  return true;
}

bool ChangeWriter::write(const RowsPublished& change) {
  _connection.runPrepared("UPDATE publishing SET position = greatest(position, $1)",
                          Parameters().add(change.position));
  return true;
}

// Behind the position of the change itself each row has another one.
bool ChangeWriter::write(const RemoteRows& change) {
  _remote.write(change, [this] {
    usePosition();
    return _position;
  });
  return true;
}

bool ChangeWriter::write(const StreamRead& change) {
  _remote.write(change);
  return true;
}

bool ChangeWriter::write(RemoteSourceSeen& change) {
  _remote.write(&change);
  return true;
}

void ChangeWriter::finish() {
  _groups.finish();
  _connection.runPrepared("UPDATE zordchd_state SET position = $1, transaction = $2",
                          Parameters().add(_position).add(_transaction + 1));
}

}  // namespace dch::pg
