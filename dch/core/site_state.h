// site_state.h: what is known of another site.
#ifndef DCH_CORE_SITE_STATE_H
#define DCH_CORE_SITE_STATE_H

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#include "dch/core/epoch.h"

namespace dch {

struct SiteState {
  std::string name = {};
  Epoch run = {};
  bool isReachable = false;                          // else it is silent
  bool isStopping = false;                           // it has said so, and was not heard since
  bool isAlone = false;                              // see SiteWatch::isAlone
  std::chrono::steady_clock::time_point since = {};  // it is there, stopping or silent
  std::string version = {};
  // How far its store and its rows in the stream are, and the difference; nothing without a file.
  std::optional<std::int64_t> newest = {};
  std::optional<std::int64_t> published = {};
  std::optional<std::int64_t> behind = {};
  // Of the changes that its store has kept: those up to which a hub has not come yet. Nothing at
  // others, and while it is not known.
  std::optional<std::int64_t> uncollected = {};
};

}  // namespace dch

#endif  // DCH_CORE_SITE_STATE_H
