// provider_line.h: a fact about a provider as a line of text, as sites tell them to each other.
//
//   A APPLICATION TEXT          registered, with this registration text
//   U APPLICATION               not registered
//   S APPLICATION GROUP SOURCE  on line
//   G APPLICATION GROUP SOURCE  not on line
//
// Names and texts are escaped (escaped_name.h), so that a line has one blank between its fields and
// no line end.
#ifndef DCH_LINK_PROVIDER_LINE_H
#define DCH_LINK_PROVIDER_LINE_H

#include <optional>
#include <string>
#include <string_view>

#include "dch/core/provider_fact.h"
#include "dch/link/shared_registrations.h"

namespace dch {

inline constexpr std::string_view plainInLines = "-._:,;/";

// Without a line end.
std::string providerLine(const ProviderFact& fact);

// What the fact is about: two facts have the same key when one of them makes the other one old.
// "A APPLICATION" or "S APPLICATION GROUP SOURCE", so that an application comes before its sources
// in the order of keys, as all other applications do.
std::string providerKey(const ProviderFact& fact);

// Takes any bytes. Nothing unless providerLine wrote them, of names that a provider may have: an
// application of 1 to suite::longestApplName bytes, a group of 1 to suite::longestName, a source of
// DCH_MAX_SOURCE_NAME at most, none with a zero byte; and of a registration that names this
// application. Throws std::bad_alloc.
std::optional<ProviderFact> parseProviderLine(std::string_view line,
                                              SharedRegistrations& registrations);

}  // namespace dch

#endif  // DCH_LINK_PROVIDER_LINE_H
