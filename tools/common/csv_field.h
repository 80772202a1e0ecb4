// csv_field.h: one field of comma-separated values, as in RFC 4180.
#ifndef TOOLS_COMMON_CSV_FIELD_H
#define TOOLS_COMMON_CSV_FIELD_H

#include <string>

namespace tools {

// `text` as a field: quoted only where a reader needs it.
std::string csvField(const std::string& text);

}  // namespace tools

#endif  // TOOLS_COMMON_CSV_FIELD_H
