#include "dch/service/toml.h"

#include <algorithm>
#include <vector>

#include "dch/core/log.h"
#include "dch/service/configuration_error.h"

namespace dch {

namespace {

[[noreturn]] void refuse(const std::string& path, std::size_t line, const std::string& problem) {
  throw ConfigurationError(path + ':' + std::to_string(line) + ": " + problem);
}

bool isNoAscii(char byte) {
  return static_cast<unsigned char>(byte) > '\x7f';
}

// Where the comment of a line begins, or its end.
std::size_t findComment(std::string_view line) {
  std::size_t i = 0;
  for (; i < line.size() && line[i] != '#'; ++i) {
    const char quote = line[i];
    if (quote != '"' && quote != '\'') continue;
    while (++i < line.size() && line[i] != quote)
      if (quote == '"' && line[i] == '\\') ++i;
  }
  return std::min(i, line.size());
}

// Returns what is wrong with a line over which toml++ 3.3 may trip: in many places it relies on
// there being no letters but English ones. In a text of several lines, which no key needs, it is
// hard to tell what is a comment.
std::string findTheUnexpected(std::string_view line) {
  const std::string_view before = line.substr(0, findComment(line));
  if (std::any_of(before.begin(), before.end(), isNoAscii))
    return "letters that are not English ones have to be written as \"\\u00e4\"";
  if (before.find(R"(""")") != std::string_view::npos ||
      before.find("'''") != std::string_view::npos)
    return "a text has to be on one line";
  return {};
}

void refuseTheUnexpected(std::string_view text, const std::string& path) {
  for (std::size_t start = 0, number = 1; start < text.size(); ++number) {
    const std::string_view line = text.substr(start, text.find('\n', start) - start);
    const std::string problem = findTheUnexpected(line);
    if (!problem.empty()) refuse(path, number, problem);
    start += line.size() + 1;
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

toml::table parseToml(std::string_view text, const std::string& path) {
  refuseTheUnexpected(text, path);
  try {
    return toml::parse(text);
  } catch (const toml::parse_error& error) {
    refuse(path, error.source().begin.line, printable(error.description()));
  } catch (const TomlAssertion&) {
    refuse(path, lineOfFault(text), "this is no TOML");
  }
}

}  // namespace dch
