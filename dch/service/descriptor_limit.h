// descriptor_limit.h: how many files this process may have open.
#ifndef DCH_SERVICE_DESCRIPTOR_LIMIT_H
#define DCH_SERVICE_DESCRIPTOR_LIMIT_H

#include <cstddef>

namespace dch {

// What the server has open itself, and what actions and the system's libraries open for a moment.
constexpr std::size_t ownDescriptors = 48;

struct ConnectionRoom {
  std::size_t channel = 0;
  std::size_t page = 0;
};

// Raises the limit, as far as it may, so that as many connections as are wanted can be open.
// Returns how many can: where there is too little room the page has a quarter of it at most.
ConnectionRoom makeRoomForConnections(const ConnectionRoom& wanted);

}  // namespace dch

#endif  // DCH_SERVICE_DESCRIPTOR_LIMIT_H
