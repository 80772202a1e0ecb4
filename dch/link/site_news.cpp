#include "dch/link/site_news.h"

#include <algorithm>
#include <utility>

namespace dch {

namespace {

// "site west is silent" or "17 sites are silent: east, north, west and 14 more".
std::string lineOf(const std::vector<std::string>& names, const std::string& what) {
  if (names.size() == 1) return "site " + names.front() + " is " + what;
  std::string line = std::to_string(names.size()) + " sites are " + what + ": ";
  const std::size_t named = std::min(names.size(), SiteNews::mostNames);
  for (std::size_t each = 0; each < named; ++each)
    line += (each == 0 ? "" : each + 1 == names.size() ? " and " : ", ") + names[each];
  if (named < names.size()) line += " and " + std::to_string(names.size() - named) + " more";
  return line;
}

}  // namespace

std::vector<std::string> SiteNews::lines(const std::vector<SiteState>& sites, TimePoint now) {
  std::vector<std::string> lines;
  if (now < _next) return lines;
  std::set<std::string, std::less<>> silent;
  std::vector<std::string> fallenSilent, stopped, back;
  for (const SiteState& each : sites) {
    const bool isTold = _silent.contains(each.name);
    if (!each.isReachable) silent.insert(each.name);
    if (each.isReachable && isTold) back.push_back(each.name);
    if (!each.isReachable && !isTold)
      (each.isStopping ? stopped : fallenSilent).push_back(each.name);
  }
  if (!fallenSilent.empty()) lines.push_back(lineOf(fallenSilent, "silent"));
  if (!stopped.empty()) lines.push_back(lineOf(stopped, "silent, as it was stopped"));
  if (!back.empty()) lines.push_back(lineOf(back, "heard again"));
  if (!lines.empty()) _next = now + pause;
  _silent = std::move(silent);
  return lines;
}

}  // namespace dch
