// loader.h: what is known, out of the file.
#ifndef DCH_STORE_LOADER_H
#define DCH_STORE_LOADER_H

#include <functional>

#include "dch/core/change.h"
#include "dch/store/change_writer.h"
#include "dch/store/sqlite.h"

namespace dch {

// Tells the changes as Store::load does. `writer` has just read the file.
void loadChanges(sqlite::Connection& connection, const ChangeWriter& writer,
                 const std::function<void(Change&&)>& take);

}  // namespace dch

#endif  // DCH_STORE_LOADER_H
