#include "dch/link/waiting_changes.h"

#include <new>

namespace dch {

namespace {

// With its part of the vector, which grows by half of it or twice, and of the map.
std::size_t bytesOf(const SiteChanges& changes) {
  constexpr std::size_t around = 3 * sizeof(SiteChanges) + 128;
  return around + 2 * changes.site.size() + changes.text.size();
}

// Neither has changes, and both are of one run.
bool isSaidAgain(const SiteChanges& before, const SiteChanges& after) {
  return before.text.empty() && after.text.empty() && before.run == after.run;
}

}  // namespace

void WaitingChanges::add(SiteChanges&& changes) {
  const auto known = _sites.find(changes.site);
  if (known != _sites.end()) {
    SiteChanges& before = _all[known->second.last];
    if (isSaidAgain(before, changes)) {
      before = std::move(changes);
      return;
    }
  }
  const std::size_t bytes = bytesOf(changes);
  const std::size_t ofSite = known != _sites.end() ? known->second.bytes : 0;
  if (bytes > mostBytes - _bytes || bytes > mostBytesOfASite - ofSite) {
    ++_dropped;
    return;
  }
  _all.push_back(std::move(changes));
  try {
    OfSite& site = known != _sites.end() ? known->second : _sites[_all.back().site];
    site.bytes += bytes;
    site.last = _all.size() - 1;
  } catch (const std::bad_alloc&) {
    _all.pop_back();
    throw;
  }
  _bytes += bytes;
}

std::vector<SiteChanges> WaitingChanges::take() noexcept {
  _sites.clear();
  _bytes = 0;
  return std::exchange(_all, {});
}

}  // namespace dch
