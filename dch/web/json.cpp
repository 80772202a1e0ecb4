#include "dch/web/json.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <utility>

#include "dch/core/utf8.h"

namespace dch {

namespace {

// What most texts are made of, which are written many times as fast.
bool standsForItself(char each) {
  return each >= ' ' && each <= '~' && each != '"' && each != '\\';
}

}  // namespace

std::string digitsOf(std::string_view bytes) {
  constexpr char digits[] = "0123456789abcdef";
  std::string text = "0x";
  text.reserve(2 + 2 * bytes.size());
  for (const char each : bytes) {
    const auto byte = static_cast<unsigned char>(each);
    text += digits[byte >> 4];
    text += digits[byte & 0xF];
  }
  return text;
}

std::string readable(std::string_view bytes) {
  return isUtf8(bytes) ? std::string(bytes) : digitsOf(bytes);
}

Json& Json::key(std::string_view name) {
  text(name);
  _text += ':';
  _needsComma = false;
  return *this;
}

Json& Json::text(std::string_view bytes) {
  if (!std::all_of(bytes.begin(), bytes.end(), standsForItself))
    return plain(nlohmann::json(readable(bytes)).dump());
  separate();
  _text += '"';
  _text += bytes;
  _text += '"';
  _needsComma = true;
  return *this;
}

Json& Json::number(std::int64_t value) {
  return plain(std::to_string(value));
}

Json& Json::real(double value) {
  return plain(nlohmann::json(value).dump());
}

Json& Json::value(const AttributeValue& value) {
  switch (value.kind) {
    case AttributeValue::Kind::number:
      return number(value.number);
    case AttributeValue::Kind::text:
      return text(value.bytes);
    case AttributeValue::Kind::bytes:
      return text(digitsOf(value.bytes));
    case AttributeValue::Kind::none:
      break;
  }
  return null();
}

Json& Json::plain(std::string_view json) {
  separate();
  _text += json;
  _needsComma = true;
  return *this;
}

std::string Json::take() {
  return std::exchange(_text, {});
}

Json& Json::begin(char bracket) {
  separate();
  _text += bracket;
  _needsComma = false;
  return *this;
}

Json& Json::end(char bracket) {
  _text += bracket;
  _needsComma = true;
  return *this;
}

void Json::separate() {
  if (_needsComma) _text += ',';
}

}  // namespace dch
