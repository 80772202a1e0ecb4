// remote_places.h: how far a hub has come with the rows of other sites, out of the database.
#ifndef DCH_POSTGRES_REMOTE_PLACES_H
#define DCH_POSTGRES_REMOTE_PLACES_H

#include "dch/postgres/connection.h"
#include "dch/store/remote_places.h"

namespace dch::pg {

// All from one state of the database. Throws Error.
RemotePlaces readRemotePlaces(Connection& connection);

}  // namespace dch::pg

#endif  // DCH_POSTGRES_REMOTE_PLACES_H
