// row_encoder.h: checks a whole row before any of it goes out.
#ifndef TOOLS_ROW_ENCODER_H
#define TOOLS_ROW_ENCODER_H

#include <string>
#include <vector>

#include "tools/row_reader.h"

namespace tools {

struct EncodedField {
  const suite::RegisteredAttribute* attribute;
  std::string bytes;  // the value as it travels
};
using EncodedRow = std::vector<EncodedField>;

// Encodes every value of a row. Throws BadValue, which names the attribute, when one of them cannot
// be sent, and when the row has no value at all or is too long for one message.
EncodedRow encodeRow(const InputRow& row);

}  // namespace tools

#endif  // TOOLS_ROW_ENCODER_H
