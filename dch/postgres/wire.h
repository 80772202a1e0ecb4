// wire.h: numbers as PostgreSQL sends them in binary form.
#ifndef DCH_POSTGRES_WIRE_H
#define DCH_POSTGRES_WIRE_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <type_traits>

namespace dch::pg {

template <class Integer>
std::array<char, sizeof(Integer)> toWire(Integer value) {
  std::array<char, sizeof(Integer)> bytes;
  auto rest = static_cast<std::make_unsigned_t<Integer>>(value);
  for (std::size_t index = bytes.size(); index-- > 0;) {
    bytes[index] = static_cast<char>(rest & 0xFF);
    if constexpr (sizeof(Integer) > 1) rest >>= 8;
  }
  return bytes;
}

// Of 1, 2, 4 or 8 bytes, as the types of the server have them.
inline std::int64_t fromWire(std::string_view bytes) {
  std::uint64_t value = !bytes.empty() && (bytes.front() & 0x80) != 0 ? ~std::uint64_t{0} : 0;
  for (const char byte : bytes) value = value << 8 | static_cast<unsigned char>(byte);
  return static_cast<std::int64_t>(value);
}

}  // namespace dch::pg

#endif  // DCH_POSTGRES_WIRE_H
