// message.h: what a client sent, and where an answer to it goes.
#ifndef DCH_CORE_MESSAGE_H
#define DCH_CORE_MESSAGE_H

#include <cstdint>
#include <string_view>

#include "dch/core/peer_address.h"

namespace dch {

// Microseconds since 1970, UTC.
using Time = std::int64_t;

// Where a message came from, which is where its answer goes: a value that stays right when the
// client is gone and its port or descriptor is somebody else's.
struct Origin {
  PeerAddress peer;
  std::uint64_t connection = 0;  // serial number of the stream connection, 0 for a datagram
  // The machine's address that a datagram was sent to, in network order; 0 where there is no
  // choice.
  std::uint32_t localAddress = 0;

  bool isDatagram() const { return connection == 0; }
  bool operator==(const Origin&) const = default;
};

struct Message {
  std::string_view bytes;  // as they came; the length word may say something else
  Origin origin;
  Time receivedAt = 0;
  bool isWhole = true;  // else it was longer
};

}  // namespace dch

#endif  // DCH_CORE_MESSAGE_H
