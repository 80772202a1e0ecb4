// handles.h: which handles are whose.
#ifndef DCH_CORE_HANDLES_H
#define DCH_CORE_HANDLES_H

#include <cstddef>

#include "zora/zora.h"

namespace dch {

// The registry counts handles of its own sources from 1 and never comes so far. Those of sources of
// other sites begin here: where both are seen, such as in a view, none means two sources, and the
// server's own stay as they would be without the others.
inline constexpr ZORA_Long firstRemoteHandle = ZORA_Long{1} << 30;

// So many sources of other sites have handles, and of one site: for good, so that who makes them up
// takes no more room.
inline constexpr std::size_t mostRemoteSources = 1'000'000;
inline constexpr std::size_t mostRemoteSourcesOfSite = 100'000;

}  // namespace dch

#endif  // DCH_CORE_HANDLES_H
