// attribute_columns.h: the attributes of a group, and the columns of their values.
#ifndef DCH_STORE_ATTRIBUTE_COLUMNS_H
#define DCH_STORE_ATTRIBUTE_COLUMNS_H

#include <cstddef>
#include <string_view>
#include <vector>

#include "dch/core/text_map.h"
#include "dch/store/group_view.h"
#include "suite/registration.h"

namespace dch {

// All that the group ever had: a column is never used for another one. One thread.
class AttributeColumns {
 public:
  // So many at most. `attributes` stand in the order of the view.
  AttributeColumns(std::size_t most, std::vector<AttributeColumn> attributes);

  // As they stand in the view.
  const std::vector<AttributeColumn>& inOrder() const { return _attributes; }
  // The columns are those from 1 to this one.
  int count() const { return static_cast<int>(_columns.size()); }
  // The column of an attribute, 0 when it has none.
  int columnOf(std::string_view attribute) const;

  // Gives the attributes this order, with a column for each new one; those that are named no more
  // stand behind the others. One for which there is no room is left out: its values are only in the
  // messages. Returns whether that changed anything.
  bool arrange(const std::vector<suite::RegisteredAttribute>& attributes);
  // The same for one that stands behind all others, unless it is there.
  bool add(std::string_view attribute);

 private:
  bool enter(std::string_view attribute);

  const std::size_t _most;
  std::vector<AttributeColumn> _attributes;
  TextMap<int> _columns;
};

}  // namespace dch

#endif  // DCH_STORE_ATTRIBUTE_COLUMNS_H
