#include "dch/store/change_writer.h"

#include <algorithm>

namespace dch {

namespace {

bool usesPosition(const Change& change) {
  return !std::holds_alternative<RowsPublished>(change) &&
         !std::holds_alternative<StreamRead>(change) &&
         !std::holds_alternative<RemoteSourceSeen>(change);
}

}  // namespace

ChangeWriter::ChangeWriter(sqlite::Connection& connection, const Epoch& epoch)
    : _providers(connection),
      _newestRows(connection, _providers),
      _clockSteps(connection, _providers),
      _epochs(connection, epoch),
      _remoteTables(connection, _providers),
      _remoteSources(connection),
      _remote(_remoteTables, _remoteSources),
      _position(_newestRows.position()),
      _defer(connection, "INSERT INTO kept_deferrals VALUES (?, ?, ?, ?, ?, ?, ?)"),
      _startAction(connection, R"(
INSERT INTO kept_actions (position, id, name, owner, started_us) VALUES (?, ?, ?, ?, ?))"),
      _endAction(connection, R"(
UPDATE kept_actions SET end_position = ?, ended_us = ?, result = ?
WHERE position = (SELECT max(position) FROM kept_actions WHERE id = ?))"),
      _publish(connection, "UPDATE publishing SET position = max(position, ?)") {}

void ChangeWriter::skipTo(std::int64_t position) {
  _position = std::max(_position, position);
}

bool ChangeWriter::write(Change* change) {
  if (usesPosition(*change)) usePosition(std::holds_alternative<Row>(*change));
  return std::visit([this](auto& each) { return write(each); }, *change);
}

void ChangeWriter::usePosition(bool isToldByRow) {
  ++_position;
  if (!isToldByRow) _positionIsDue = true;
  if (!_epochs.isDue()) return;
  // Also when the first change is refused, the next epoch is not to begin at the same position.
  _positionIsDue = true;
  _epochs.begin(_position);
}

bool ChangeWriter::write(const Registered& change) {
  return _providers.write(change, _position);
}

bool ChangeWriter::write(const Unregistered& change) {
  _providers.write(change);
  return true;
}

bool ChangeWriter::write(const WentOnline& change) {
  return _providers.write(change, _position);
}

bool ChangeWriter::write(const WentOffline& change) {
  _providers.write(change);
  return true;
}

bool ChangeWriter::write(const Row& change) {
  RowTable* const table = _providers.tableOf(change.handle);
  if (table == nullptr) return false;
  table->insert(_position, change.handle, change.time, change.message);
  _newestRows.add(change.handle, _position);
  _clockSteps.note(_position, change.time);
  return true;
}

bool ChangeWriter::write(const Deferred& change) {
  const Deferral& deferral = change.deferral.front();
  _defer.bind(1, _position)
      .bind(2, deferral.actionId)
      .bind(3, deferral.peltaObject)
      .bind(4, deferral.currentTime)
      .bindText(5, deferral.applKey)
      .bindText(6, deferral.tableName)
      .bindText(7, deferral.sourceName)
      .run();
  return true;
}

bool ChangeWriter::write(const ActionStarted& change) {
  _startAction.bind(1, _position)
      .bind(2, change.id)
      .bindText(3, change.name)
      .bindText(4, change.owner)
      .bind(5, change.time)
      .run();
  return true;
}

bool ChangeWriter::write(const ActionEnded& change) {
  _endAction.bind(1, _position)
      .bind(2, change.time)
      .bind(3, change.status)
      .bind(4, change.id)
      .run();
  return true;
}

bool ChangeWriter::write(const RowsPublished& change) {
  _publish.bind(1, change.position).run();
  return true;
}

// Behind the position of the change itself each row has another one.
bool ChangeWriter::write(const RemoteRows& change) {
  _remote.write(change, [this] {
    usePosition(false);
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

void ChangeWriter::removeUnusedGroups(std::size_t most) {
  _providers.removeUnused(most);
  _providers.finish();
}

std::int64_t ChangeWriter::finish() {
  _providers.finish();
  _newestRows.save(_position, _positionIsDue);
  return _position > keptPosition() ? _position : 0;
}

void ChangeWriter::committed() {
  _positionIsDue = false;
  _newestRows.committed();
}

}  // namespace dch
