// web_limits.h: how much browsers may take.
#ifndef DCH_WEB_WEB_LIMITS_H
#define DCH_WEB_WEB_LIMITS_H

#include <chrono>
#include <cstddef>
#include <cstdint>

namespace dch {

struct ConnectionLimits {
  std::uint32_t headerBytes = 8'192;
  std::chrono::milliseconds header{10'000};      // from its first byte to its last one
  std::chrono::milliseconds idle{60'000};        // between two requests
  std::chrono::milliseconds answer{10'000};      // from the request until its answer begins
  std::chrono::milliseconds standstill{30'000};  // of an answer that nobody reads
  std::chrono::milliseconds farewell{2'000};     // until the other side closes, too
};

struct WebLimits {
  std::size_t connections = 256;
  ConnectionLimits connection = {};
};

}  // namespace dch

#endif  // DCH_WEB_WEB_LIMITS_H
