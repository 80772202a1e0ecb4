// group_view.h: the view through which people and programs read the rows of a group.
//
// It is that of a state file (dch/store/group_view.h), but that each column has one type, and a
// name 63 bytes at most.
#ifndef DCH_POSTGRES_GROUP_VIEW_H
#define DCH_POSTGRES_GROUP_VIEW_H

#include <cstddef>
#include <cstdint>
#include <string>

#include "dch/postgres/connection.h"
#include "dch/postgres/typed_columns.h"

namespace dch::pg {

// What the server leaves of a name.
inline constexpr std::size_t mostNameBytes = 63;

// Makes the view, or makes it anew with the columns that there are. One on which views of others
// depend stays as it was when it cannot have these columns otherwise. In a transaction.
void defineGroupView(Connection& connection, const std::string& view, std::int64_t group,
                     const TypedColumns& columns, ViewedSites sites);

// Returns false when views of others depend on it: it is there then. In a transaction.
bool removeGroupView(Connection& connection, const std::string& view);

}  // namespace dch::pg

#endif  // DCH_POSTGRES_GROUP_VIEW_H
