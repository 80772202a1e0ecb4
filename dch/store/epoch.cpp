#include "dch/store/epoch.h"

#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <system_error>

namespace dch {

namespace {

constexpr std::string_view digits = "0123456789abcdef";

}  // namespace

Epoch newEpoch() {
  Epoch epoch;
  if (getentropy(epoch.bytes.data(), epoch.bytes.size()) != 0)
    throw std::system_error(errno, std::generic_category(), "the system gives no random numbers");
  return epoch;
}

std::string epochText(const Epoch& epoch) {
  std::string text;
  for (const std::uint8_t byte : epoch.bytes) {
    text += digits[byte / 16];
    text += digits[byte % 16];
  }
  return text;
}

std::optional<Epoch> parseEpoch(std::string_view text) {
  Epoch epoch;
  if (text.size() != 2 * epoch.bytes.size()) return std::nullopt;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const std::size_t digit = digits.find(text[i]);
    if (digit == std::string_view::npos) return std::nullopt;
    std::uint8_t& byte = epoch.bytes[i / 2];
    byte = static_cast<std::uint8_t>(byte * 16 + digit);
  }
  return epoch;
}

}  // namespace dch
