#include "dch/web/json.h"

#include "dch/core/utf8.h"
#include "dch/web/answer.h"

namespace dch {

std::string readable(std::string_view bytes) {
  if (isUtf8(bytes)) return std::string(bytes);
  constexpr char digits[] = "0123456789abcdef";
  std::string text = "0x";
  for (const char each : bytes) {
    const auto byte = static_cast<unsigned char>(each);
    text += digits[byte >> 4];
    text += digits[byte & 0xF];
  }
  return text;
}

Answer errorAnswer(int status, std::string_view sentence) {
  const Json body = {{"error", readable(sentence)}};
  return {.status = status, .type = std::string(jsonType), .body = shareText(textOf(body) + "\n")};
}

}  // namespace dch
