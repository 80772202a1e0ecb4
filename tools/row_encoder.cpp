#include "tools/row_encoder.h"

#include "tools/common/printable.h"
#include "tools/common/values.h"
#include "zordchcl/messages.h"
#include "zordchcl/zordchcl.h"

namespace tools {
namespace {

void checkForm(const InputField& field) {
  const bool isText = isTextLetter(field.attribute->letter);
  if (field.form == InputField::Form::jsonNumber && isText)
    throw BadValue("a number where a text is expected");
  if (field.form == InputField::Form::jsonText && !isText)
    throw BadValue("a text where a number is expected");
}

std::size_t sizeInMessage(const EncodedField& field) {
  return ZOR0_FieldSize(DCH_attrName, field.attribute->name.c_str(), 0) +
         ZOR0_FieldSize(DCH_attrValue, field.bytes.data(),
                        static_cast<ZORA_Long>(field.bytes.size()));
}

}  // namespace

EncodedRow encodeRow(const InputRow& row) {
  if (row.fields.empty()) throw BadValue("the row has no value");
  EncodedRow encoded;
  std::size_t messageBytes = DCH_DATA_ATTRIBUTES_OFFSET;
  for (const InputField& field : row.fields) {
    try {
      checkForm(field);
      encoded.push_back({field.attribute, encodeValue(*field.attribute, field.text)});
    } catch (const BadValue& error) {
      throw BadValue("attribute " + inQuotes(field.attribute->name) + ": " + error.what());
    }
    messageBytes += sizeInMessage(encoded.back());
  }
  if (messageBytes > DCH_WORK_BUFFER_SIZE)
    throw BadValue("the row takes " + std::to_string(messageBytes) +
                   " bytes as a message, which holds " + std::to_string(DCH_WORK_BUFFER_SIZE));
  return encoded;
}

}  // namespace tools
