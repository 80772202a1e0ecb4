#include "dch/store/retention.h"

#include <algorithm>
#include <limits>
#include <optional>
#include <string>
#include <variant>

namespace dch {

namespace {

constexpr std::int64_t megabyte = 1'048'576;
constexpr Time day = Time{24} * 60 * 60 * 1'000'000;

// What a deferral or an action takes besides its texts, with its places in the indexes.
constexpr std::int64_t recordBytes = 80;
// The same of a source of another site, all of whose names are in an index, too.
constexpr std::int64_t sourceBytes = 30;

// What one takes of the file. Those that are longer than half a page have one each.
std::int64_t bytesOfRecord(std::int64_t textBytes, std::int64_t pageBytes) {
  const std::int64_t size = textBytes + recordBytes;
  return size < pageBytes ? pageBytes / (pageBytes / size) : (size / pageBytes + 1) * pageBytes;
}

std::int64_t bytesOfRecords(sqlite::Connection& connection, std::int64_t pageBytes) {
  sqlite::Statement texts(connection, R"(
SELECT length(CAST("key" || "table" || source AS BLOB)) FROM kept_deferrals UNION ALL
SELECT length(CAST(name || owner AS BLOB)) FROM kept_actions)");
  std::int64_t bytes = 0;
  while (texts.step()) bytes += bytesOfRecord(texts.number(0), pageBytes);
  return bytes + sqlite::queryNumber(connection, R"(
SELECT ifnull(sum(2 * length(CAST(site || application || "group" || name AS BLOB)) + )" +
                                                     std::to_string(sourceBytes) +
                                                     "), 0) FROM remote_sources");
}

using Place = std::optional<RowTable::Place>;

const Place& earlier(const Place& left, const Place& right) {
  return !right || (left && left->number <= right->number) ? left : right;
}

// Of the server's own rows.
Place findFirst(const Providers& providers, std::int64_t from) {
  Place found;
  for (const auto& table : providers.tables()) found = earlier(found, table->firstFrom(from));
  return found;
}

Place findFirstOfAll(const Providers& providers) {
  Place found = findFirst(providers, 0);
  for (const auto& table : providers.remoteTables()) found = earlier(found, table->first());
  return found;
}

std::int64_t numberOf(sqlite::Statement* query) {
  const std::int64_t number = query->step() ? query->number(0) : 0;
  query->reset();
  return number;
}

}  // namespace

Retention::Retention(sqlite::Connection& connection, bool isPublished)
    : _connection(connection),
      _pageCount(connection, "PRAGMA page_count"),
      _freePages(connection, "PRAGMA freelist_count"),
      _pageBytes(sqlite::queryNumber(connection, "PRAGMA page_size")),
      _recordBytes(bytesOfRecords(connection, _pageBytes)),
      _isPublished(isPublished),
      _noteUnpublished(connection, "UPDATE publishing SET removed = max(removed, ?)") {}

bool Retention::step(ChangeWriter* writer, const RetentionLimits& limits, Time now) {
  const std::int64_t freePages = numberOf(&_freePages);
  const std::int64_t usedBytes = (numberOf(&_pageCount) - freePages) * _pageBytes - _recordBytes;
  const Time keptSince = now - limits.days * day;
  return removeTooMany(writer, usedBytes, limits.megabytes * megabyte) ||
         removeTooOld(writer, keptSince) || removeTooOldRemote(writer, keptSince) ||
         removeGroups(writer) || shrink(freePages);
}

// As many as take what is too much, if all take the same, and no more: they may be large and few.
bool Retention::removeTooMany(ChangeWriter* writer, std::int64_t usedBytes,
                              std::int64_t mostBytes) {
  if (usedBytes <= mostBytes) return false;
  const Place first = findFirstOfAll(writer->providers());
  if (!first) return false;
  const std::int64_t count = writer->keptPosition() - first->number + 1;
  const std::int64_t each = std::max<std::int64_t>(usedBytes / count, 1);
  remove(writer, first->number, std::min((usedBytes - mostBytes) / each + 1, stepRows),
         std::nullopt);
  return true;
}

bool Retention::removeTooOld(ChangeWriter* writer, Time keptSince) {
  for (const std::int64_t start : writer->clockSteps().starts()) {
    const Place first = findFirst(writer->providers(), start);
    if (!first || first->time >= keptSince) continue;
    remove(writer, first->number, stepRows, keptSince);
    return true;
  }
  return false;
}

bool Retention::removeTooOldRemote(ChangeWriter* writer, Time keptSince) {
  for (const auto& table : writer->providers().remoteTables()) {
    if (const auto& oldest = table->oldest(); !oldest || *oldest >= keptSince) continue;
    sqlite::Transaction transaction(_connection);
    const std::int64_t removed = table->removeOlder(keptSince, stepRows);
    transaction.commit();
    _removed += removed;
    return true;
  }
  return false;
}

void Retention::noteKept(const Change& change) noexcept {
  std::size_t textBytes = 0;
  if (const auto* const deferred = std::get_if<Deferred>(&change)) {
    const Deferral& deferral = deferred->deferral.front();
    textBytes = deferral.applKey.size() + deferral.tableName.size() + deferral.sourceName.size();
  } else if (const auto* const started = std::get_if<ActionStarted>(&change)) {
    textBytes = started->name.size() + started->owner.size();
  } else {
    return;
  }
  _recordBytes += bytesOfRecord(static_cast<std::int64_t>(textBytes), _pageBytes);
}

void Retention::noteSources(const SourcesAdded& added) noexcept {
  _recordBytes += 2 * added.nameBytes + sourceBytes * added.sources;
}

// Those of so many positions: the server's own that are older than `before`, or else all.
void Retention::remove(ChangeWriter* writer, std::int64_t first, std::int64_t count,
                       std::optional<Time> before) {
  const Providers& providers = writer->providers();
  const std::int64_t last = first + count - 1;
  sqlite::Transaction transaction(_connection);
  writer->newestRows().saveUpTo(last);
  const std::int64_t published =
      _isPublished ? sqlite::queryNumber(_connection, "SELECT position FROM publishing") : last;
  const std::int64_t lastPublished = std::clamp(published, first - 1, last);
  const Time end = before.value_or(std::numeric_limits<Time>::max());
  std::int64_t removed = 0;
  std::int64_t unpublished = 0;
  std::int64_t lastLost = 0;
  for (const auto& table : providers.tables()) {
    if (const Place& each = table->first(); !each || each->number > last) continue;
    if (first <= lastPublished) removed += table->remove(first, lastPublished, end);
    if (lastPublished == last) continue;
    lastLost = std::max(lastLost, table->lastOf(lastPublished + 1, last, end));
    unpublished += table->remove(lastPublished + 1, last, end);
  }
  if (unpublished > 0) _noteUnpublished.bind(1, lastLost).run();
  if (!before)
    for (const auto& table : providers.remoteTables())
      if (const Place& each = table->first(); each && each->number <= last)
        removed += table->removeUpTo(last);
  const Place left = findFirst(providers, 0);
  const std::int64_t firstLeft = left ? left->number : writer->keptPosition() + 1;
  writer->clockSteps().forgetBefore(firstLeft);
  writer->epochs().forgetBefore(firstLeft);
  transaction.commit();
  writer->committed();
  _removed += removed + unpublished;
  _removedUnpublished += unpublished;
}

bool Retention::removeGroups(ChangeWriter* writer) {
  if (!writer->providers().hasUnused()) return false;
  sqlite::Transaction transaction(_connection);
  writer->removeUnusedGroups(stepGroups);
  transaction.commit();
  return true;
}

bool Retention::shrink(std::int64_t freePages) {
  if (freePages <= sparePages) return false;
  _connection.execute("PRAGMA incremental_vacuum(" + std::to_string(stepPages) + ")");
  return freePages - stepPages > sparePages;
}

}  // namespace dch
