#include "dch/store/remote_writer.h"

#include <algorithm>
#include <cstddef>
#include <utility>

#include "dch/core/row_message.h"
#include "dch/store/epoch_table.h"

namespace dch {

RemoteWriter::RemoteWriter(sqlite::Connection& connection, Providers& providers)
    : _providers(providers),
      _sources(connection),
      _findEpoch(connection, "SELECT number FROM remote_epochs WHERE site = ? AND epoch = ?"),
      _setEpoch(connection, "INSERT OR REPLACE INTO remote_epochs VALUES (?, ?, ?, ?)"),
      _forgetEpochs(connection,
                    "DELETE FROM remote_epochs WHERE site = ?1 AND changed <= (SELECT changed FROM "
                    "remote_epochs WHERE site = ?1 ORDER BY changed DESC LIMIT 1 OFFSET " +
                        std::to_string(mostKnownEpochs) + ")"),
      _setSite(connection, "INSERT OR REPLACE INTO remote_sites VALUES (?, ?)"),
      _setStream(connection, "UPDATE stream_read SET stream = ?, sequence = ?") {}

void RemoteWriter::write(const RemoteRows& change,
                         const std::function<std::int64_t()>& usePosition) {
  KnownEpochs epochs;
  std::vector<const RemoteRow*> rows = newRows(change, &epochs);
  const std::uint64_t refusedBefore = _refused.rows;
  refuseGroupsWithoutRoom(change.site, &rows);
  const std::vector<Place> places = placesOf(rows);
  for (std::size_t i = 0; i < rows.size(); ++i) {
    const RemoteRow& row = *rows[i];
    const auto& [table, isRow] = places[i];
    const ZORA_Long handle =
        _sources.handleOf({change.site, row.application, row.group, row.source});
    if (handle == 0) {
      refuse(change.site, row);
      continue;
    }
    const std::int64_t position = usePosition();
    table->insert(position, handle, row.time, row.message, isRow);
    find(&epochs, change.site, row.name.epoch).changed = position;
  }
  std::for_each(change.known.rbegin(), change.known.rend(), [&](const RowName& name) {
    Known& known = find(&epochs, change.site, name.epoch);
    known.number = std::max(known.number, name.number);
    known.changed = usePosition();
  });
  if (_refused.rows != refusedBefore)  // these have no position of a row
    for (Known& each : epochs)
      if (each.changed == 0) each.changed = usePosition();
  writeEpochs(change.site, epochs);
  _setSite.bindText(1, change.site);
  if (change.passedFrom)
    _setSite.bind(2, static_cast<std::int64_t>(*change.passedFrom));
  else
    _setSite.bindNull(2);
  _setSite.run();
}

void RemoteWriter::write(const StreamRead& change) {
  _setStream.bindText(1, change.stream).bind(2, static_cast<std::int64_t>(change.sequence)).run();
}

void RemoteWriter::write(RemoteSourceSeen* change) {
  change->handle = _sources.handleOf(namesOf(*change));
}

RemoteWriter::Known& RemoteWriter::find(KnownEpochs* epochs, std::string_view site,
                                        const Epoch& epoch) {
  const auto known = std::find_if(epochs->rbegin(), epochs->rend(),
                                  [&](const Known& each) { return each.epoch == epoch; });
  if (known != epochs->rend()) return *known;
  _findEpoch.bindText(1, site);
  bindEpoch(_findEpoch, 2, epoch);
  const bool isInFile = _findEpoch.step();
  const std::int64_t number = isInFile ? _findEpoch.number(0) : 0;
  _findEpoch.reset();
  epochs->push_back({epoch, number, isInFile});
  return epochs->back();
}

// Those that are not known yet; they are then.
std::vector<const RemoteRow*> RemoteWriter::newRows(const RemoteRows& change, KnownEpochs* epochs) {
  std::vector<const RemoteRow*> rows;
  for (const RemoteRow& row : change.rows) {
    Known& known = find(epochs, change.site, row.name.epoch);
    if (row.name.number <= known.number) continue;
    known.number = row.name.number;
    rows.push_back(&row);
  }
  return rows;
}

void RemoteWriter::refuseGroupsWithoutRoom(std::string_view site,
                                           std::vector<const RemoteRow*>* rows) {
  const std::vector<const RemoteRow*> all = *rows;
  _providers.makeRoomFor(
      rows, [&] { return mostGroupsOfSite - std::min(mostGroupsOfSite, _sources.groupsOf(site)); });
  auto kept = rows->begin();
  for (const RemoteRow* const each : all)
    if (kept != rows->end() && *kept == each)
      ++kept;
    else
      refuse(site, *each);
}

void RemoteWriter::refuse(std::string_view site, const RemoteRow& row) {
  if (_refused.rows++ == 0)
    _refused.first = row.application + '.' + row.group + " of site " + std::string(site);
}

// All columns that the rows need come at once, which makes the file's schema be read again.
std::vector<RemoteWriter::Place> RemoteWriter::placesOf(const std::vector<const RemoteRow*>& rows) {
  std::vector<Place> places;
  places.reserve(rows.size());
  std::vector<std::string_view> attributes;
  for (const RemoteRow* const row : rows) {
    attributes.clear();
    const bool isRow = readRow(row->message, &attributes);
    if (!isRow) attributes.clear();
    places.push_back({&_providers.enter(*row, attributes), isRow});
  }
  _providers.defineEntered();
  return places;
}

void RemoteWriter::writeEpochs(std::string_view site, const KnownEpochs& epochs) {
  bool isNew = false;
  for (const Known& each : epochs) {
    if (each.changed == 0) continue;
    isNew = isNew || !each.isInFile;
    _setEpoch.bindText(1, site);
    bindEpoch(_setEpoch, 2, each.epoch);
    _setEpoch.bind(3, each.number).bind(4, each.changed).run();
  }
  if (isNew) _forgetEpochs.bindText(1, site).run();
}

}  // namespace dch
