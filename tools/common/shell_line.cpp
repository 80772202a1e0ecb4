#include "tools/common/shell_line.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <utility>

namespace tools {
namespace {

bool isDigit(char each) {
  return each >= '0' && each <= '9';
}

bool isPlain(char each) {
  const auto byte = static_cast<unsigned char>(each);
  return byte >= 0x80 || std::isalnum(byte) != 0 || std::strchr("_-./+,:=@%", each) != nullptr;
}

// What a quote of this kind cannot hold goes between its end and a new one.
std::string quotedByte(char each, char quote) {
  switch (quote) {
    case '\'':
      return each == '\'' ? "'\\''" : std::string(1, each);
    case '"':
      if (each == '!') return "\"\\!\"";
      return std::strchr("$`\"\\", each) != nullptr ? std::string{'\\', each}
                                                    : std::string(1, each);
    default:
      return isPlain(each) ? std::string(1, each) : std::string{'\\', each};
  }
}

}  // namespace

ShellLine::ShellLine(const std::string& line, const std::string& breaks) {
  std::string word;
  bool isWord = false;         // there is one, if an empty one
  std::size_t keptBefore = 0;  // before the open quote
  const auto finish = [&] {
    if (isWord && !_isFileName) _words.push_back(word);
    if (isWord) _isFileName = false;
    word.clear();
    isWord = false;
    _kept = 0;
  };
  for (std::size_t i = 0; i < line.size(); ++i) {
    const char each = line[i];
    const char next = i + 1 < line.size() ? line[i + 1] : '\0';
    if (_quote != '\0') {
      if (each == _quote) {
        _quote = '\0';
        _kept = keptBefore;  // bash completes the quoted part anew
      } else if (_quote == '"' && each == '\\' && next != '\0' && std::strchr("$`\"\\", next)) {
        word += line[++i];
      } else {
        word += each;
      }
    } else if (each == ' ' || each == '\t' || each == '\n') {
      finish();
    } else if (each == '<' || each == '>') {
      if (std::all_of(word.begin(), word.end(), isDigit)) isWord = false;  // a descriptor
      finish();
      _isFileName = true;
    } else {
      isWord = true;
      if (each == '\'' || each == '"') {
        _quote = each;
        keptBefore = std::exchange(_kept, word.size());
      } else if (each != '\\') {
        word += each;
        if (breaks.find(each) != std::string::npos) _kept = word.size();
      } else if (next != '\0') {
        word += line[++i];
      }
    }
  }
  _words.push_back(_isFileName ? "" : word);
}

std::string ShellLine::replacement(const std::string& word) const {
  std::string quoted;
  for (std::size_t i = _kept; i < word.size(); ++i) quoted += quotedByte(word[i], _quote);
  // bash closes the open quote, unless this has just done so.
  if (_quote != '\0' && quoted.ends_with(_quote)) quoted += _quote;
  return quoted;
}

}  // namespace tools
