// epoch.h: the run of a server in which something was kept.
#ifndef DCH_CORE_EPOCH_H
#define DCH_CORE_EPOCH_H

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace dch {

// Names a run. A file may give a number again: after a loss of power, as an older copy that was put
// in place, as a clone. A row is named for ever by its epoch and its number.
struct Epoch {
  std::array<std::uint8_t, 16> bytes{};

  friend bool operator==(const Epoch&, const Epoch&) = default;
};

// A random one. Throws std::system_error when the system has no random numbers.
Epoch newEpoch();

// 32 small hexadecimal digits.
std::string epochText(const Epoch& epoch);

// Nothing unless epochText wrote it.
std::optional<Epoch> parseEpoch(std::string_view text);

}  // namespace dch

#endif  // DCH_CORE_EPOCH_H
