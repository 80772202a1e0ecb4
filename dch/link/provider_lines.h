// provider_lines.h: many lines about providers, as they come from a site.
#ifndef DCH_LINK_PROVIDER_LINES_H
#define DCH_LINK_PROVIDER_LINES_H

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "dch/core/provider_fact.h"
#include "dch/link/shared_registrations.h"

namespace dch {

// The facts of lines that each end in '\n': any bytes. Nothing when one of them is no line of
// provider_line.h. Throws std::bad_alloc.
std::optional<std::vector<ProviderFact>> parseProviderLines(std::string_view text,
                                                            SharedRegistrations& registrations);

// The same for a piece of all that a site has. Nothing, too, unless it says of each what it has,
// in the order of their keys, the first one behind `key`. Leaves the last one's key in `key`.
std::optional<std::vector<ProviderFact>> parseProviderPiece(std::string_view text, std::string* key,
                                                            SharedRegistrations& registrations);

}  // namespace dch

#endif  // DCH_LINK_PROVIDER_LINES_H
