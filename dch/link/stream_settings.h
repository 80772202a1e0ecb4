// stream_settings.h: the stream of rows, as it has to be.
#ifndef DCH_LINK_STREAM_SETTINGS_H
#define DCH_LINK_STREAM_SETTINGS_H

#include <cstdint>
#include <string>

#include "dch/link/server_connection.h"

namespace dch {

inline constexpr char rowsStreamName[] = "ZORD_ROWS";

struct StreamState {
  std::string made;                // when it was, as the server writes it
  std::uint64_t lastSequence = 0;  // 0: it has had no message yet
};

// Makes the stream if it is missing. Throws LinkError when it cannot, when it has settings by which
// rows would not be taken or be lost, and when JetStream has not answered after a second.
StreamState provideRowsStream(ServerConnection& connection);

}  // namespace dch

#endif  // DCH_LINK_STREAM_SETTINGS_H
