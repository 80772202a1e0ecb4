#include "tools/common/csv_field.h"

#include <csv.h>

namespace tools {
namespace {

// An empty text would read as left out, blanks at the ends as nothing.
bool needsQuotes(const std::string& text) {
  return text.empty() || text.find_first_of(",\"\r\n") != std::string::npos ||
         text.front() == ' ' || text.back() == ' ' || text.front() == '\t' || text.back() == '\t';
}

}  // namespace

std::string csvField(const std::string& text) {
  if (!needsQuotes(text)) return text;
  std::string field(2 * text.size() + 2, '\0');  // if each character were a quote
  field.resize(csv_write(field.data(), field.size(), text.data(), text.size()));
  return field;
}

}  // namespace tools
