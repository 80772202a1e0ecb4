#include "dch/store/remote_writer.h"

#include <algorithm>
#include <cstddef>
#include <utility>

#include "dch/core/row_message.h"

namespace dch {

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
  _tables.setSite(change.site, change.passedFrom);
}

void RemoteWriter::write(const StreamRead& change) {
  _tables.setStream(change);
}

void RemoteWriter::write(RemoteSourceSeen* change) {
  change->handle = _sources.handleOf(namesOf(*change));
}

RemoteWriter::Known& RemoteWriter::find(KnownEpochs* epochs, std::string_view site,
                                        const Epoch& epoch) {
  const auto known = std::find_if(epochs->rbegin(), epochs->rend(),
                                  [&](const Known& each) { return each.epoch == epoch; });
  if (known != epochs->rend()) return *known;
  const std::optional<std::int64_t> number = _tables.findEpoch(site, epoch);
  epochs->push_back({epoch, number.value_or(0), number.has_value()});
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
  _tables.makeRoomFor(
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

// All columns that the rows need come at once: to bring some is dear.
std::vector<RemoteWriter::Place> RemoteWriter::placesOf(const std::vector<const RemoteRow*>& rows) {
  std::vector<Place> places;
  places.reserve(rows.size());
  std::vector<std::string_view> attributes;
  for (const RemoteRow* const row : rows) {
    attributes.clear();
    const bool isRow = readRow(row->message, &attributes);
    if (!isRow) attributes.clear();
    places.push_back({&_tables.enter(*row, attributes), isRow});
  }
  _tables.defineEntered();
  return places;
}

void RemoteWriter::writeEpochs(std::string_view site, const KnownEpochs& epochs) {
  bool isNew = false;
  for (const Known& each : epochs) {
    if (each.changed == 0) continue;
    isNew = isNew || !each.isInStore;
    _tables.setEpoch(site, {each.epoch, each.number}, each.changed);
  }
  if (isNew) _tables.forgetEpochs(site);
}

}  // namespace dch
