// site_news.h: what the log is told of sites that fall silent and are back.
#ifndef DCH_LINK_SITE_NEWS_H
#define DCH_LINK_SITE_NEWS_H

#include <chrono>
#include <functional>
#include <set>
#include <string>
#include <vector>

#include "dch/core/site_state.h"

namespace dch {

// However many sites come and go, a line or two in ten seconds are enough: what has changed
// meanwhile, and is still so, is told together. Knows no clock.
class SiteNews {
 public:
  using TimePoint = std::chrono::steady_clock::time_point;

  static constexpr std::chrono::seconds pause{10};
  static constexpr std::size_t mostNames = 3;  // in a line

  // To be called every second with all that are known, by name. What has changed since the last
  // lines.
  std::vector<std::string> lines(const std::vector<SiteState>& sites, TimePoint now);

 private:
  std::set<std::string, std::less<>> _silent;  // as far as was told
  TimePoint _next{};
};

}  // namespace dch

#endif  // DCH_LINK_SITE_NEWS_H
