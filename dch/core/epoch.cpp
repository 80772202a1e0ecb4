#include "dch/core/epoch.h"

#include <sys/random.h>

#include <cerrno>
#include <cstddef>
#include <system_error>

namespace dch {

namespace {

constexpr std::string_view epochDigits = "0123456789abcdef";

}  // namespace

Epoch newEpoch() {
  Epoch epoch;
  // So few bytes come whole or not at all; a signal can only interrupt the wait of a machine that
  // has just been started.
  while (getrandom(epoch.bytes.data(), epoch.bytes.size(), 0) < 0)
    if (errno != EINTR)
      throw std::system_error(errno, std::generic_category(), "no random numbers");
  return epoch;
}

std::string epochText(const Epoch& epoch) {
  std::string text;
  text.reserve(2 * epoch.bytes.size());
  for (const unsigned byte : epoch.bytes) {
    text += epochDigits[byte >> 4];
    text += epochDigits[byte & 0xF];
  }
  return text;
}

std::optional<Epoch> parseEpoch(std::string_view text) {
  Epoch epoch;
  if (text.size() != 2 * epoch.bytes.size()) return std::nullopt;
  for (std::size_t index = 0; index < text.size(); ++index) {
    const std::size_t digit = epochDigits.find(text[index]);
    if (digit == std::string_view::npos) return std::nullopt;
    std::uint8_t& byte = epoch.bytes[index / 2];
    byte = static_cast<std::uint8_t>(std::size_t{16} * byte + digit);
  }
  return epoch;
}

}  // namespace dch
