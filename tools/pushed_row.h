// pushed_row.h: reads the messages that the DCH pushes to a subscriber.
#ifndef TOOLS_PUSHED_ROW_H
#define TOOLS_PUSHED_ROW_H

#include <span>
#include <stdexcept>
#include <string>
#include <vector>

#include "tools/common/values.h"
#include "zora/zora.h"

namespace tools {

struct PushedValue {
  std::string name;
  DecodedValue value;
};

struct PushedRow {
  ZORA_Long handle = 0;  // of the source that sent it
  std::vector<PushedValue> values;
};

// What a message breaks, with the number of the field.
class MalformedMessage : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Reads a data message at the start of `buffer`, whose bytes may come from anywhere; its fields are
// turned to host order in place. Throws MalformedMessage, also when the row names an attribute
// twice.
PushedRow readPushedRow(std::span<char> buffer);

}  // namespace tools

#endif  // TOOLS_PUSHED_ROW_H
