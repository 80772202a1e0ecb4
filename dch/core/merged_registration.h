// merged_registration.h: what is told of an application that several sites have registered.
#ifndef DCH_CORE_MERGED_REGISTRATION_H
#define DCH_CORE_MERGED_REGISTRATION_H

#include <span>
#include <string_view>
#include <vector>

#include "suite/registration.h"

namespace dch {

// Of several registrations of one application, one or more, the first goes before the others: its
// groups come first, then those that only others have. So do the attributes of a group; of those of
// one name the first is taken. The help is that of the first which has one.

using Registrations = std::span<const suite::Registration* const>;

// A group as the merged registration has it.
struct MergedGroup {
  std::string_view name;
  std::vector<const suite::RegisteredAttribute*> attributes;
};

// What they give leads into the registrations. They throw std::bad_alloc.
std::vector<std::string_view> mergedGroupNames(Registrations registrations);
std::vector<MergedGroup> mergedGroups(Registrations registrations);
std::string_view mergedHelp(Registrations registrations);

}  // namespace dch

#endif  // DCH_CORE_MERGED_REGISTRATION_H
