#include "tools/pushed_row.h"

#include <algorithm>
#include <cstring>
#include <string_view>

#include "tools/common/printable.h"
#include "zordchcl/messages.h"

namespace tools {
namespace {

struct Field {
  std::string_view bytes;
  char letter = 0;  // of an attribute value
};

// Takes the fields of a message in their order.
class Fields {
 public:
  explicit Fields(std::span<char> buffer) : _cursor(buffer.data(), buffer.size()) {}

  bool atEnd() const { return _cursor.atEnd(); }

  Field take(short type, const char* name) {
    ++_number;
    Field field;
    void* value = nullptr;
    ZORA_Long length = 0;
    const short found = ZOR0_ExtractDataField(&_cursor, &value, &length, &field.letter);
    if (found != type)
      fail(std::string(name) + " expected, type " + std::to_string(found) + " found");
    field.bytes = {static_cast<const char*>(value), static_cast<std::size_t>(length)};
    return field;
  }

  // The width of a number follows from its field's type, which the extraction has checked.
  template <typename Number>
  Number takeNumber(short type, const char* name) {
    Number number = 0;
    std::memcpy(&number, take(type, name).bytes.data(), sizeof number);
    return number;
  }

  std::string takeText(short type, const char* name) {
    const std::string_view bytes = take(type, name).bytes;
    return std::string(bytes.substr(0, bytes.find('\0')));
  }

  [[noreturn]] void fail(const std::string& reason) const {
    throw MalformedMessage("field " + std::to_string(_number) + ": " + reason);
  }

 private:
  ZOR0_FieldCursor _cursor;
  int _number = 0;
};

}  // namespace

PushedRow readPushedRow(std::span<char> buffer) {
  Fields fields(buffer);
  PushedRow row;
  const auto code = fields.takeNumber<short>(DCH_requestType, "DCH_requestType");
  if (code != DCH_REQUEST_DATA) fields.fail("request " + std::to_string(code) + " is no data");
  row.handle = fields.takeNumber<ZORA_Long>(DCH_handle, "DCH_handle");
  fields.take(DCH_dataCode, "DCH_dataCode");
  while (!fields.atEnd()) {
    std::string name = fields.takeText(DCH_attrName, "DCH_attrName");
    const bool twice = std::any_of(row.values.begin(), row.values.end(),
                                   [&](const PushedValue& value) { return value.name == name; });
    if (twice) fields.fail("attribute " + inQuotes(name) + " stands twice");
    const Field value = fields.take(DCH_attrValue, "DCH_attrValue");
    row.values.push_back({std::move(name), decodeValue(value.letter, value.bytes)});
  }
  return row;
}

}  // namespace tools
