#include "dch/link/live_counts.h"

#include <utility>

namespace dch {

namespace {

// As many as a site sends in minutes; who says more makes it up.
constexpr std::uint64_t mostMissed = std::uint64_t{1} << 20;

}  // namespace

LiveCounts::Seen LiveCounts::note(const std::string& topic, const std::string& site,
                                  const Epoch& run, std::uint64_t count) {
  const auto sites = _topics.find(topic);
  if (sites != _topics.end())
    if (const auto known = sites->second.find(site); known != sites->second.end()) {
      const Last last = std::exchange(known->second, {run, count});
      if (last.run != run) return {};
      if (count > last.count) {
        const std::uint64_t missed = count - last.count - 1;
        return {true, missed < mostMissed ? missed : 0};
      }
      known->second = last;
      return {false, 0};
    }
  // What is not known is not missed.
  if (_known >= _mostKnown) return {};
  _topics[topic].emplace(site, Last{run, count});
  ++_known;
  return {};
}

void LiveCounts::forget(std::string_view topic) {
  const auto sites = _topics.find(topic);
  if (sites == _topics.end()) return;
  _known -= sites->second.size();
  _topics.erase(sites);
}

}  // namespace dch
