// descriptor_limit.h: how many files this process may have open.
#ifndef DCH_SERVICE_DESCRIPTOR_LIMIT_H
#define DCH_SERVICE_DESCRIPTOR_LIMIT_H

#include <cstddef>

namespace dch {

// What the server has open itself, and what actions and the system's libraries open for a moment.
constexpr std::size_t ownDescriptors = 48;

// Raises the limit, as far as it may, so that `wanted` connections can be open. Returns how many
// can.
std::size_t makeRoomForConnections(std::size_t wanted);

}  // namespace dch

#endif  // DCH_SERVICE_DESCRIPTOR_LIMIT_H
