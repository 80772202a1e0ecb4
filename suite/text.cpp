#include "suite/text.h"

#include <array>
#include <cstring>

void ZOR0_TruncateFromLeft(char* text, int length, int keep) {
  if (text == nullptr || keep >= length) return;
  if (keep < 0) keep = 0;
  std::memmove(text, text + (length - keep), static_cast<std::size_t>(keep));
  text[keep] = '\0';
}

char* ZOR0_strtok(char* text, const char* delimiters) {
  static thread_local char* place = nullptr;
  if (text == nullptr && place == nullptr) return nullptr;
  return strtok_r(text, delimiters, &place);
}

namespace {

constexpr std::array<std::uint32_t, 256> makeCrcTable() {
  constexpr std::uint32_t reversedPolynomial = 0xEDB88320;
  std::array<std::uint32_t, 256> table{};
  for (std::uint32_t byte = 0; byte < table.size(); ++byte) {
    std::uint32_t remainder = byte;
    for (int bit = 0; bit < 8; ++bit)
      remainder = (remainder >> 1) ^ ((remainder & 1) != 0 ? reversedPolynomial : 0);
    table[byte] = remainder;
  }
  return table;
}

}  // namespace

std::uint32_t ZOR0_ComputeCheckSum(const void* data, std::size_t length) {
  static constexpr std::array<std::uint32_t, 256> table = makeCrcTable();
  const auto* bytes = static_cast<const unsigned char*>(data);
  std::uint32_t remainder = 0xFFFFFFFF;
  for (std::size_t i = 0; i < length; ++i)
    remainder = (remainder >> 8) ^ table[(remainder ^ bytes[i]) & 0xFF];
  return ~remainder;
}

int ZOR0_IsValidPointer(const void* pointer) {
  return pointer != nullptr ? 1 : 0;
}
