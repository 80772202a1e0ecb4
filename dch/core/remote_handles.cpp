#include "dch/core/remote_handles.h"

#include <algorithm>
#include <new>

namespace dch {

namespace {

constexpr std::size_t shares = 4;

std::size_t bytesOf(const LiveRow& row) {
  return row.site.size() + row.application.size() + row.group.size() + row.source.size() +
         row.message.size();
}

}  // namespace

RemoteNames namesOf(const LiveRow& row) {
  return {row.site, row.application, row.group, row.source};
}

std::optional<ZORA_Long> RemoteHandles::find(const RemoteNames& names) {
  makeKey(names, &_key);
  const auto known = _atHand.find(_key);
  if (known == _atHand.end()) return std::nullopt;
  return known->second;
}

bool RemoteHandles::hold(LiveRow&& row) {
  const std::size_t bytes = bytesOf(row);
  auto site = _sites.find(row.site);
  const Site held = site != _sites.end() ? site->second : Site();
  if (_rows >= _limits.rows || held.rows >= _limits.rows / shares ||
      _bytes + bytes > _limits.bytes || held.bytes + bytes > _limits.bytes / shares)
    return false;
  makeKey(namesOf(row), &_key);
  auto source = _sources.find(_key);
  if (source != _sources.end()) {
    source->second.rows.push_back(std::move(row));
  } else {
    std::list<Source*> toAsk(1);
    Source added;
    added.rows.reserve(1);
    source = _sources.emplace(_key, std::move(added)).first;
    try {
      if (site == _sites.end()) site = _sites.emplace(row.site, Site()).first;
    } catch (const std::bad_alloc&) {
      _sources.erase(source);
      throw;
    }
    source->second.site = &*site;
    source->second.rows.push_back(std::move(row));
    toAsk.front() = &source->second;
    _toAsk.splice(_toAsk.end(), toAsk);
  }
  ++_rows;
  ++site->second.rows;
  _bytes += bytes;
  site->second.bytes += bytes;
  return true;
}

// Of a site that has as many sources as it may, those that are new come to nothing, and those that
// it had before are found one after the other.
std::size_t RemoteHandles::mostAsked(const Site& site) const {
  return site.isFull ? 1 : std::max<std::size_t>(_limits.asked / shares, 1);
}

std::optional<RemoteSourceSeen> RemoteHandles::toAsk() {
  if (_asked >= _limits.asked) return std::nullopt;
  const auto next = std::find_if(_toAsk.begin(), _toAsk.end(), [this](const Source* source) {
    return source->site->second.asked < mostAsked(source->site->second);
  });
  if (next == _toAsk.end()) return std::nullopt;
  const LiveRow& row = (*next)->rows.front();
  RemoteSourceSeen change{row.site, row.application, row.group, row.source};
  ++(*next)->site->second.asked;
  ++_asked;
  _toAsk.erase(next);
  return change;
}

std::vector<LiveRow> RemoteHandles::concluded(const RemoteSourceSeen& change,
                                              bool isKept) noexcept {
  makeKey(namesOf(change), &_key);  // it has had this key already, which takes no more memory
  const auto source = _sources.find(_key);
  if (source == _sources.end()) return {};
  const auto site = source->second.site;
  std::vector<LiveRow> rows = std::move(source->second.rows);
  _sources.erase(source);
  for (const LiveRow& row : rows) {
    _bytes -= bytesOf(row);
    site->second.bytes -= bytesOf(row);
  }
  _rows -= rows.size();
  site->second.rows -= rows.size();
  --_asked;
  --site->second.asked;
  if (isKept && change.handle == 0) site->second.isFull = true;
  if (site->second.rows == 0) _sites.erase(_sites.find(site->first));
  if (isKept) noteAtHand(change.handle);
  return rows;
}

void RemoteHandles::noteAtHand(ZORA_Long handle) noexcept {
  try {
    if (_atHand.size() >= _limits.atHand) _atHand.clear();
    _atHand.emplace(_key, handle);
  } catch (const std::bad_alloc&) {
    // It is asked for again.
  }
}

}  // namespace dch
