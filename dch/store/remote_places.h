// remote_places.h: how far a hub has come with the rows of other sites.
#ifndef DCH_STORE_REMOTE_PLACES_H
#define DCH_STORE_REMOTE_PLACES_H

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "dch/core/change.h"
#include "dch/core/row_name.h"
#include "dch/store/file_place.h"

namespace dch {

// What RemoteRows and StreamRead have said that were kept.
struct RemotePlaces {
  struct Site {
    std::string name;
    std::vector<RowName> known;  // an epoch each, the one that was changed last first
    std::optional<std::uint64_t> passedFrom;
  };
  std::vector<Site> sites;  // by their names
  StreamRead stream;        // without a text when none was ever read
};

// All from one state of the file. `places` and `vfs`: see History. Throws HistoryError.
RemotePlaces readRemotePlaces(std::function<StatePlaces()> places, const char* vfs = nullptr);

}  // namespace dch

#endif  // DCH_STORE_REMOTE_PLACES_H
