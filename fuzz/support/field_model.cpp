#include "fuzz/support/field_model.h"

#include <utility>

namespace fuzz {

namespace {

constexpr std::size_t lengthWord = 4;
constexpr std::size_t fieldHeader = 6;

// Whether these bytes can be the value of a field of this type.
bool isValue(std::uint16_t type, std::string_view bytes) {
  switch (static_cast<ZOR0_FieldType>(type)) {
    case DCH_requestType:
    case DCH_dataCode:
    case DCH_actionType:
      return bytes.size() == 2;
    case DCH_status:
    case DCH_handle:
    case DCH_actionID:
    case DCH_currentTime:
    case DCH_peltaObject:
      return bytes.size() == 4;
    case DCH_applName:
    case DCH_applKey:
    case DCH_sourceName:
    case DCH_attrGroup:
    case DCH_tableName:
    case DCH_attrName:
    case DCH_actionName:
    case DCH_actionParms:
    case DCH_actionOwner:
      return bytes.find('\0') != std::string_view::npos;
    case DCH_attrValue:
      return !bytes.empty();
    case DCH_response:
      break;
  }
  return true;
}

}  // namespace

std::uint32_t numberIn(std::string_view bytes, std::size_t width) {
  std::uint32_t number = 0;
  for (std::size_t i = 0; i < width; ++i)
    number = number << 8 | (i < bytes.size() ? static_cast<unsigned char>(bytes[i]) : 0u);
  return number;
}

FieldModel::FieldModel(std::string_view received) {
  const std::size_t stated = numberIn(received, lengthWord);
  if (received.size() < lengthWord || stated < lengthWord) return;
  _left = received.substr(0, stated);
  _left.remove_prefix(lengthWord);
}

std::optional<Field> FieldModel::next() {
  const std::string_view field = std::exchange(_left, {});
  if (field.size() < fieldHeader) return std::nullopt;
  const auto type = static_cast<std::uint16_t>(numberIn(field, 2));
  const std::size_t count = numberIn(field.substr(2), 4);
  const std::string_view behindHeader = field.substr(fieldHeader);
  if (count > behindHeader.size() || !isValue(type, behindHeader.substr(0, count)))
    return std::nullopt;
  _left = behindHeader.substr(count);
  return Field{type, behindHeader.substr(0, count)};
}

std::optional<std::string_view> FieldModel::next(std::uint16_t type) {
  const std::optional<Field> field = next();
  if (!field || field->type != type) return std::nullopt;
  return field->value;
}

std::optional<short> FieldModel::nextShort(std::uint16_t type) {
  const std::optional<std::string_view> value = next(type);
  if (!value) return std::nullopt;
  return static_cast<short>(numberIn(*value, 2));
}

std::optional<ZORA_Long> FieldModel::nextLong(std::uint16_t type) {
  const std::optional<std::string_view> value = next(type);
  if (!value) return std::nullopt;
  return static_cast<ZORA_Long>(numberIn(*value, 4));
}

std::optional<std::string_view> FieldModel::nextText(std::uint16_t type) {
  const std::optional<std::string_view> value = next(type);
  if (!value) return std::nullopt;
  return value->substr(0, value->find('\0'));
}

bool isStatusEvent(std::string_view message) {
  FieldModel fields(message);
  return lengthWordIsRight(message) && fields.next(DCH_applName) && fields.next(DCH_attrGroup) &&
         fields.next(DCH_sourceName) && fields.next(DCH_requestType) && fields.atEnd();
}

}  // namespace fuzz
