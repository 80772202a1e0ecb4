// epoch.h: names the run of a server in which something was kept.
#ifndef DCH_STORE_EPOCH_H
#define DCH_STORE_EPOCH_H

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace dch {

// A file may give a number again: after a loss of power, as an older copy that was put in place, as
// the copy of another machine. A row is named for ever by its epoch and its number.
struct Epoch {
  std::array<std::uint8_t, 16> bytes{};

  friend bool operator==(const Epoch&, const Epoch&) = default;
};

// One that nobody has. Throws std::system_error.
Epoch newEpoch();

// 32 hexadecimal digits, the letters small.
std::string epochText(const Epoch& epoch);

// Nothing, unless epochText() has written it.
std::optional<Epoch> parseEpoch(std::string_view text);

}  // namespace dch

#endif  // DCH_STORE_EPOCH_H
