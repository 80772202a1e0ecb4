#include "dch/link/waiting_live_rows.h"

#include <new>

#include "dch/core/rows_out.h"
#include "dch/link/live_header.h"
#include "dch/link/subject.h"

namespace dch {

namespace {

// Names are counted as if they took nothing: they are short, and rows are few.
std::size_t sizeOf(const IncomingLiveRow& row) {
  return row.row.message.size();
}

std::optional<IncomingLiveRow> rowOf(std::string_view subject, std::string_view header,
                                     std::string_view message) {
  if (message.size() > maxDatagramBytes) return std::nullopt;  // no subscriber reads it
  auto names = parseLiveSubject(subject);
  auto facts = parseLiveHeader(header);
  if (!names || !facts) return std::nullopt;
  return IncomingLiveRow{{std::move(names->site), std::move(names->application),
                          std::move(names->group), std::move(facts->source), std::string(message)},
                         facts->run,
                         facts->count};
}

}  // namespace

void WaitingLiveRows::open() {
  const std::lock_guard lock(_mutex);
  _isOpen = true;
}

void WaitingLiveRows::close() noexcept {
  const std::lock_guard lock(_mutex);
  _isOpen = false;
  _rows.clear();
  _sites.clear();
  _all = {};
}

void WaitingLiveRows::put(std::string_view subject, std::string_view header,
                          std::string_view message) noexcept {
  try {
    if (auto row = rowOf(subject, header, message)) return keep(*std::move(row));
    const std::lock_guard lock(_mutex);
    ++_refused;
  } catch (const std::bad_alloc&) {
    // It is lost.
  }
}

// Another server that has this one's name is not heard.
void WaitingLiveRows::keep(IncomingLiveRow&& row) {
  if (row.row.site == _ownSite) return;
  const std::size_t size = sizeOf(row);
  const std::lock_guard lock(_mutex);
  if (!_isOpen) return;
  const auto known = _sites.find(row.row.site);
  if (!hasRoomFor(known != _sites.end() ? known->second : Share(), size)) return;
  Share& site = known != _sites.end() ? known->second : _sites[row.row.site];
  _rows.push_back(std::move(row));
  for (Share* const each : {&site, &_all}) {
    ++each->rows;
    each->bytes += size;
  }
  if (_rows.size() == 1 && _wake) _wake();
}

bool WaitingLiveRows::hasRoomFor(const Share& site, std::size_t bytes) const {
  return _all.rows < _limits.rows && _all.bytes + bytes <= _limits.bytes &&
         site.rows < _limits.rows / 4 && site.bytes + bytes <= _limits.bytes / 4;
}

void WaitingLiveRows::setWake(std::function<void()> wake) noexcept {
  const std::lock_guard lock(_mutex);
  _wake = std::move(wake);
}

std::optional<IncomingLiveRow> WaitingLiveRows::take() noexcept {
  const std::lock_guard lock(_mutex);
  if (_rows.empty()) return std::nullopt;
  std::optional<IncomingLiveRow> row(std::move(_rows.front()));
  _rows.pop_front();
  const std::size_t size = sizeOf(*row);
  const auto site = _sites.find(row->row.site);
  for (Share* const each : {&site->second, &_all}) {
    --each->rows;
    each->bytes -= size;
  }
  if (site->second.rows == 0) _sites.erase(site);
  return row;
}

std::uint64_t WaitingLiveRows::refused() const {
  const std::lock_guard lock(_mutex);
  return _refused;
}

}  // namespace dch
