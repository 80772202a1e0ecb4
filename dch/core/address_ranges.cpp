#include "dch/core/address_ranges.h"

#include <arpa/inet.h>

#include <algorithm>
#include <charconv>
#include <optional>

namespace dch {

namespace {

constexpr int addressBits = 32;

std::optional<std::uint32_t> addressIn(std::string_view text) {
  in_addr address;
  if (inet_pton(AF_INET, std::string(text).c_str(), &address) != 1) return std::nullopt;
  return ntohl(address.s_addr);
}

std::optional<int> prefixIn(std::string_view text) {
  int bits = -1;
  const char* const end = text.data() + text.size();
  const auto [stopped, error] = std::from_chars(text.data(), end, bits);
  if (error != std::errc() || stopped != end || bits < 0 || bits > addressBits) return std::nullopt;
  return bits;
}

std::uint32_t maskOf(int prefix) {
  return prefix == 0 ? 0 : ~std::uint32_t{0} << (addressBits - prefix);
}

std::string textOf(std::uint32_t address, int prefix) {
  const PeerAddress shown(in_addr{htonl(address)});
  return std::string(shown.addressText().data()) + '/' + std::to_string(prefix);
}

}  // namespace

AddressRanges AddressRanges::everyone() {
  AddressRanges ranges;
  ranges.add("0.0.0.0/0");
  return ranges;
}

AddressRanges AddressRanges::thisMachine() {
  AddressRanges ranges;
  ranges.add("127.0.0.0/8");
  return ranges;
}

std::string AddressRanges::add(std::string_view text) {
  const std::size_t slash = text.find('/');
  const std::optional<std::uint32_t> address = addressIn(text.substr(0, slash));
  const std::optional<int> prefix =
      slash == std::string_view::npos ? addressBits : prefixIn(text.substr(slash + 1));
  if (!address || !prefix || text.find('\0') != std::string_view::npos)
    return "not an IPv4 address such as 192.168.1.5, or a range such as 10.0.0.0/8";
  const std::uint32_t mask = maskOf(*prefix);
  // One of the two is not what was meant, and the range may be far larger than the address.
  if ((*address & ~mask) != 0)
    return "not a range, whose address ends where its prefix does: " +
           textOf(*address & mask, *prefix) + ", or " + textOf(*address, addressBits);
  _ranges.push_back({*address, mask});
  return {};
}

bool AddressRanges::contains(const PeerAddress& peer) const {
  const std::uint32_t address = ntohl(peer.address);
  return std::any_of(_ranges.begin(), _ranges.end(), [address](const Range& range) {
    return (address & range.mask) == range.network;
  });
}

}  // namespace dch
