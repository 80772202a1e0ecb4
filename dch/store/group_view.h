// group_view.h: the view through which people and programs read the rows of a group.
//
// It is named APPL.GROUP and has the columns time, time_us, source, handle and code, then the
// attributes of the last registration in its order, then those that only earlier ones had, or rows
// of other sites. A name that is taken gets `_` behind it until it is free, and SQL does not tell
// small letters from capital ones.
//
// Of a group of which other sites have rows, those are in it, too, and behind `code` it has a
// column `site`, which is null for the server's own rows.
#ifndef DCH_STORE_GROUP_VIEW_H
#define DCH_STORE_GROUP_VIEW_H

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace dch {

// A name may be as long as it likes.
inline constexpr std::size_t anyLength = static_cast<std::size_t>(-1);

// Names that are taken. One thread.
class SqlNames {
 public:
  // A name has so many bytes at most.
  explicit SqlNames(std::initializer_list<std::string_view> taken = {},
                    std::size_t mostBytes = anyLength);

  // Takes the name, or the next free one. Bytes that are no UTF-8, or zero, become U+FFFD, since
  // names of tables and columns have to be text. Of one that is too long its start is taken.
  std::string take(std::string_view wanted);

  // Gives a name back that was taken.
  void release(std::string_view name) { _taken.erase(folded(name)); }

 private:
  static std::string folded(std::string_view name);

  const std::size_t _mostBytes;
  std::set<std::string> _taken;
};

// An attribute of a group, and the column of its values in the group's tables.
struct AttributeColumn {
  std::string name;
  int column = 0;  // from 1
  bool operator==(const AttributeColumn&) const = default;
};

// What a column of a table is called.
std::string columnName(int column);
// The table of the server's own rows of a group, and that of the rows of other sites.
std::string rowTableName(std::int64_t group);
std::string remoteRowTableName(std::int64_t group);

// Whose rows a view has.
enum class ViewedSites { own, all };

// What the attributes are called in the view, those for which a result has no room left out.
std::vector<AttributeColumn> viewColumns(const std::vector<AttributeColumn>& attributes,
                                         std::size_t mostColumns, ViewedSites sites,
                                         std::size_t mostNameBytes = anyLength);

// The statement that makes the view.
std::string groupViewStatement(std::string_view view, std::int64_t group,
                               const std::vector<AttributeColumn>& attributes,
                               std::size_t mostColumns, ViewedSites sites);

}  // namespace dch

#endif  // DCH_STORE_GROUP_VIEW_H
