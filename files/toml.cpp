#include "files/toml.h"

#include <algorithm>
#include <sstream>
#include <vector>

namespace files {

namespace {

bool isNoAscii(char byte) {
  return static_cast<unsigned char>(byte) > '\x7f';
}

std::size_t newlinesIn(std::string_view text) {
  return static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n'));
}

// Where the text in quotes that begins at `start` ends. One that is not closed ends with its line,
// or when it may have several with the file: toml++ refuses it.
std::size_t endOfText(std::string_view file, std::size_t start) {
  const char quote = file[start];
  const bool hasLines = file.substr(start, 3) == std::string(3, quote);
  const std::string closing(hasLines ? 3 : 1, quote);
  for (std::size_t i = start + closing.size(); i < file.size(); ++i) {
    if (file[i] == '\\' && quote == '"') {
      ++i;
    } else if (file[i] == '\n' && !hasLines) {
      return i;
    } else if (file.substr(i, closing.size()) == closing) {
      i += closing.size();
      // Up to two quotes more belong to the text.
      for (int more = 0; hasLines && more < 2 && i < file.size() && file[i] == quote; ++more) ++i;
      return i;
    }
  }
  return file.size();
}

// Where the comment, the text in quotes or else the character at `start` ends.
std::size_t endOfPart(std::string_view file, std::size_t start) {
  if (file[start] == '#') return std::min(file.find('\n', start), file.size());
  const bool isText = file[start] == '"' || file[start] == '\'';
  return isText ? endOfText(file, start) : start + 1;
}

// toml++ 3.3 relies in many places on there being no letters but English ones, outside of comments.
void refuseOtherLetters(std::string_view file) {
  for (std::size_t start = 0; start < file.size();) {
    const std::size_t end = endOfPart(file, start);
    const std::string_view part = file.substr(start, end - start);
    const auto letter = std::find_if(part.begin(), part.end(), isNoAscii);
    if (part.front() != '#' && letter != part.end()) {
      const auto offset = start + static_cast<std::size_t>(letter - part.begin());
      throw NoToml{newlinesIn(file.substr(0, offset)) + 1,
                   "letters that are not English ones have to be written as \"\\u00e4\""};
    }
    start = end;
  }
}

bool isUnderstood(std::string_view text) {
  try {
    static_cast<void>(toml::parse(text));
  } catch (const toml::parse_error&) {
  } catch (const TomlAssertion&) {
    return false;
  }
  return true;
}

// The first line with which `text`, which is not understood, is not.
std::size_t lineOfFault(std::string_view text) {
  std::vector<std::size_t> ends;
  for (std::size_t i = 0; i < text.size(); ++i)
    if (text[i] == '\n') ends.push_back(i + 1);
  const auto found = std::partition_point(ends.begin(), ends.end(), [text](std::size_t end) {
    return isUnderstood(text.substr(0, end));
  });
  return static_cast<std::size_t>(found - ends.begin()) + 1;
}

}  // namespace

toml::table parseToml(std::string_view text) {
  refuseOtherLetters(text);
  try {
    return toml::parse(text);
  } catch (const toml::parse_error& error) {
    throw NoToml{error.source().begin.line, std::string(error.description())};
  } catch (const TomlAssertion&) {
    throw NoToml{lineOfFault(text), "this is no TOML"};
  }
}

std::string describeValue(const toml::node& value) {
  if (value.is_table()) return "a table";
  if (const toml::array* const array = value.as_array())
    return array->empty() ? "an empty array" : "an array";
  std::ostringstream text;
  value.visit([&text](const auto& each) { text << each; });
  return text.str();
}

}  // namespace files
