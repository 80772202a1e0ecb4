// schema.h: what is in the database of a state.
//
// The tables of a state file (dch/store/schema.h), with these differences. `zordchd_state` has the
// version of the schema, the highest position in use, and the number of the last transaction, by
// which it is known what has become of one. Names and other texts that may be any bytes are bytes;
// where a view shows one, it stands beside them as a text. The column of an attribute has a type,
// which its first registration, or row, has decided: numbers, or texts. The newest rows are always
// all there, and places in time are found by an index.
//
// People and programs that read the database use the views: `applications`, `sources`, `actions`,
// `deferrals` and one for each group (row_tables.h). All of it is in the schema in which the
// connection makes things, which is to be the server's alone.
#ifndef DCH_POSTGRES_SCHEMA_H
#define DCH_POSTGRES_SCHEMA_H

#include <cstdint>

#include "dch/postgres/connection.h"

namespace dch::pg {

inline constexpr std::int64_t newestSchema = 1;

// The version of what is there, 0 when nothing is. Throws Error.
std::int64_t schemaVersion(Connection& connection);

// Makes what is there from an older version into the newest one; in a transaction.
void upgradeSchema(Connection& connection, std::int64_t version);

}  // namespace dch::pg

#endif  // DCH_POSTGRES_SCHEMA_H
