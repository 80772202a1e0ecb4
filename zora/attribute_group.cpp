// What the suite's components share about attribute groups: their checksum and their help texts.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "suite/text.h"
#include "zora/trace_unit.h"
#include "zora/zora.h"

namespace {

constexpr int maxDigits = 5;

char _checksumStr[64];

}  // namespace

char* ZORA_ComputeChecksumOnAttrGroup(const char* attrGroup) {
  TRC1_QUIET_FUNCTION("ZORA_ComputeChecksumOnAttrGroup");
  std::memset(_checksumStr, 0, sizeof _checksumStr);
  const auto checksum =
      static_cast<std::uint16_t>(ZOR0_ComputeCheckSum(attrGroup, std::strlen(attrGroup)));
  std::snprintf(_checksumStr, sizeof _checksumStr, "%d", checksum);
  // Sixteen bits never take more digits; the cut is what keeps a wider sum in its place.
  const int length = static_cast<int>(std::strlen(_checksumStr));
  if (length > maxDigits) {
    TRC1_DETAIL("Note: _checksumStr<%s> length=%d. Being truncated.\n", _checksumStr, length);
    ZOR0_TruncateFromLeft(_checksumStr, length, maxDigits);
  }
  return _checksumStr;
}

void ZORA_validateHelpText(char* text) {
  TRC1_FUNCTION("ZORA_validateHelpText");
  const auto isDelimiter = [](char c) { return std::strchr(",:;'\"", c) != nullptr && c != '\0'; };
  std::replace_if(text, text + std::strlen(text), isDelimiter, ' ');
  TRC1_LEAVE();
}
