// loader.h: what is known, out of the database.
#ifndef DCH_POSTGRES_LOADER_H
#define DCH_POSTGRES_LOADER_H

#include <functional>

#include "dch/core/change.h"
#include "dch/postgres/connection.h"

namespace dch::pg {

// Tells the changes as Store::load does. Throws Error, and what `take` throws.
void loadChanges(Connection& connection, const std::function<void(Change&&)>& take);

}  // namespace dch::pg

#endif  // DCH_POSTGRES_LOADER_H
