#include "dch/core/offline_rows.h"

#include <utility>

#include "dch/core/registry.h"

namespace dch {

namespace {

std::size_t bytesOf(const Row& row) {
  return row.message.capacity();
}

}  // namespace

void OfflineRows::add(Source* source) noexcept {
  if (!source->row) return;
  if (bytesOf(*source->row) > _limitBytes)
    source->row.reset();
  else
    append(source);
}

void OfflineRows::replace(Source* source, Row* row) noexcept {
  remove(source);
  source->row.reset();
  if (bytesOf(*row) > _limitBytes) return;
  source->row = std::move(*row);
  append(source);
}

void OfflineRows::remove(Source* source) noexcept {
  Source* const older = std::exchange(source->olderOffline, nullptr);
  Source* const newer = std::exchange(source->newerOffline, nullptr);
  if (older == nullptr && _oldest != source) return;  // it is none of them
  (older != nullptr ? older->newerOffline : _oldest) = newer;
  (newer != nullptr ? newer->olderOffline : _newest) = older;
  _bytes -= bytesOf(*source->row);
}

void OfflineRows::append(Source* source) noexcept {
  source->olderOffline = _newest;
  (_newest != nullptr ? _newest->newerOffline : _oldest) = source;
  _newest = source;
  _bytes += bytesOf(*source->row);
  while (_bytes > _limitBytes) forgetOldest();
}

void OfflineRows::forgetOldest() noexcept {
  Source* const source = _oldest;
  remove(source);
  source->row.reset();
}

}  // namespace dch
