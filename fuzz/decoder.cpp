// The field decoder on any bytes, and the encoder on the fields found.
#include <algorithm>
#include <cstring>
#include <memory>
#include <vector>

#include "fuzz/support/field_model.h"
#include "fuzz/support/require.h"
#include "zordchcl/messages.h"

using namespace fuzz;

namespace {

std::size_t fixedWidth(short type) {
  switch (ZOR0_LayoutOfField(type)) {
    case ZOR0_FieldLayout::fixed16:
      return 2;
    case ZOR0_FieldLayout::fixed32:
      return 4;
    default:
      return 0;
  }
}

// Checks one decoded field, whose value lies at `value`, and puts its bytes back in network order.
void checkField(const Field& field, short type, char* value, ZORA_Long length, char attrType) {
  require(type == static_cast<short>(field.type), "the type that stands there");
  const std::size_t size = field.value.size() - (type == DCH_attrValue ? 1 : 0);
  require(static_cast<std::size_t>(length) == size, "the length that stands there");
  if (type == DCH_attrValue) require(attrType == field.value[0], "the attribute's type");
  const std::size_t width = fixedWidth(type);
  if (width == 0) return;
  std::uint32_t number = 0;
  if (width == 2) {
    std::uint16_t half = 0;
    std::memcpy(&half, value, sizeof half);
    number = half;
  } else {
    std::memcpy(&number, value, sizeof number);
  }
  require(number == numberIn(field.value, width), "a number in host order");
  std::copy(field.value.begin(), field.value.end(), value);
}

// Adds a field to a message as a client would. Returns whether that can make the same bytes.
bool encode(const Field& field, DCH_MessageBuilder* message) {
  const auto type = static_cast<short>(field.type);
  const char* const value = field.value.data();
  const auto size = static_cast<ZORA_Long>(field.value.size());
  switch (ZOR0_LayoutOfField(type)) {
    case ZOR0_FieldLayout::fixed16:
      message->add(type, static_cast<short>(numberIn(field.value, 2)));
      return true;
    case ZOR0_FieldLayout::fixed32:
      message->add(type, static_cast<ZORA_Long>(numberIn(field.value, 4)));
      return true;
    case ZOR0_FieldLayout::text:
      message->add(type, value);
      return field.value.find('\0') == field.value.size() - 1;
    case ZOR0_FieldLayout::bytes:
      message->addBytes(type, value, size);
      return true;
    case ZOR0_FieldLayout::attributeValue:
      message->addAttributeValue(value + 1, size - 1, *value);
      return true;
    case ZOR0_FieldLayout::unknown:
      break;
  }
  return false;
}

void checkEncoder(const std::vector<Field>& fields, std::string_view message) {
  const std::unique_ptr<char[]> buffer(new char[message.size()]);
  DCH_MessageBuilder builder(buffer.get(), message.size());
  for (const Field& field : fields)
    if (!encode(field, &builder)) return;
  require(builder.fits(), "a message that is as long as before");
  const std::string_view built(buffer.get(), static_cast<std::size_t>(builder.length()));
  require(lengthWordIsRight(built), "the length of a built message");
  require(built.substr(4) == message.substr(4), "the same fields");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t count) {
  const std::string_view received(reinterpret_cast<const char*>(bytes), count);
  const std::unique_ptr<char[]> message(new char[count]);
  received.copy(message.get(), count);
  ZOR0_FieldCursor cursor(message.get(), count);
  FieldModel model(received);
  std::vector<Field> fields;
  for (;;) {
    void* value = message.get();
    ZORA_Long length = -1;
    char attrType = '?';
    const short type = ZOR0_ExtractDataField(&cursor, &value, &length, &attrType);
    const std::optional<Field> field = model.next();
    require(cursor.atEnd() == model.atEnd(), "the end of the message");
    if (!field) {
      require(type == 0 && value == nullptr && length == 0, "nothing but the end");
      break;
    }
    char* const start = message.get() + (field->value.data() - received.data());
    require(value == start + (type == DCH_attrValue ? 1 : 0), "a value inside the message");
    checkField(*field, type, start, length, attrType);
    fields.push_back(*field);
  }
  require(std::string_view(message.get(), count) == received, "nothing else has changed");
  if (fields.empty()) return 0;
  const char* const end = fields.back().value.data() + fields.back().value.size();
  checkEncoder(fields, received.substr(0, static_cast<std::size_t>(end - received.data())));
  return 0;
}
