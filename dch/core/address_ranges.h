// address_ranges.h: IPv4 addresses that something is allowed to.
#ifndef DCH_CORE_ADDRESS_RANGES_H
#define DCH_CORE_ADDRESS_RANGES_H

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "dch/core/peer_address.h"

namespace dch {

// A value; none at first.
class AddressRanges {
 public:
  static AddressRanges everyone();
  static AddressRanges thisMachine();

  // Adds those of `text`, such as "10.0.0.0/8", or "192.168.1.5" for a single one. Returns what is
  // wrong with it, nothing when it is good.
  std::string add(std::string_view text);

  bool contains(const PeerAddress& peer) const;

 private:
  struct Range {
    std::uint32_t network;  // host order, like the mask
    std::uint32_t mask;
  };

  std::vector<Range> _ranges;
};

}  // namespace dch

#endif  // DCH_CORE_ADDRESS_RANGES_H
