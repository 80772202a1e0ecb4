// moment.h: times as people and programs write them in addresses, and as answers show them.
#ifndef DCH_WEB_MOMENT_H
#define DCH_WEB_MOMENT_H

#include <optional>
#include <string>
#include <string_view>

#include "dch/core/message.h"

namespace dch {

// "2026-01-31T23:59:59.123456Z" (UTC, with or without a fraction), seconds since 1970 (with or
// without one), or so long before `now`: "-90s", "-15m", "-24h", "-7d". Digits behind the
// microseconds are left out. Nothing for other texts.
std::optional<Time> parseMoment(std::string_view text, Time now);

// "2026-01-31T23:59:59.123456Z"
std::string momentText(Time time);

}  // namespace dch

#endif  // DCH_WEB_MOMENT_H
