#include "tools/row_reader.h"

#include <algorithm>

#include "tools/common/printable.h"
#include "tools/common/values.h"

namespace tools {

const suite::RegisteredAttribute* resolveAttribute(const suite::RegisteredGroup& group,
                                                   std::string_view name, RowColumns* taken) {
  const auto found = std::find_if(group.attributes.begin(), group.attributes.end(),
                                  [&](const auto& attribute) { return attribute.name == name; });
  if (found == group.attributes.end())
    throw BadValue("attribute " + inQuotes(name) + ": the group " + inQuotes(group.name) +
                   " has no such attribute");
  if (std::find(taken->begin(), taken->end(), &*found) != taken->end())
    throw BadValue("attribute " + inQuotes(name) + ": it is named twice");
  taken->push_back(&*found);
  return &*found;
}

}  // namespace tools
