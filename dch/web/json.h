// json.h: writes JSON piece by piece, without a copy of all of it in objects.
#ifndef DCH_WEB_JSON_H
#define DCH_WEB_JSON_H

#include <cstdint>
#include <string>
#include <string_view>

#include "dch/core/attribute_value.h"

namespace dch {

// Bytes as people read them: as they are when they are text, else "0x" and their digits.
std::string readable(std::string_view bytes);
std::string digitsOf(std::string_view bytes);

// Members and elements get their commas by themselves; who calls sees to it that what begins ends,
// and that a member's value follows its key.
class Json {
 public:
  Json& beginObject() { return begin('{'); }
  Json& endObject() { return end('}'); }
  Json& beginArray() { return begin('['); }
  Json& endArray() { return end(']'); }
  Json& key(std::string_view name);

  Json& text(std::string_view bytes);  // as readable() shows them
  Json& number(std::int64_t value);
  Json& real(double value);  // a number that is finite
  Json& boolean(bool value) { return plain(value ? "true" : "false"); }
  Json& null() { return plain("null"); }
  Json& value(const AttributeValue& value);
  // What is JSON already.
  Json& plain(std::string_view json);

  std::size_t size() const { return _text.size(); }
  // What was written since the last call.
  std::string take();

 private:
  Json& begin(char bracket);
  Json& end(char bracket);
  void separate();

  std::string _text;
  bool _needsComma = false;
};

}  // namespace dch

#endif  // DCH_WEB_JSON_H
