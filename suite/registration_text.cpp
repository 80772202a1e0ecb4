#include <algorithm>
#include <charconv>
#include <utility>

#include "suite/interface_types.h"
#include "suite/registration.h"
#include "suite/trimmed.h"

namespace suite {
namespace {

constexpr std::string_view attributeLetters = "ACGLNDRTIS";
constexpr std::string_view delimiters = ",:;'\"";

// What is wrong with a clause; caught in parseRegistration.
struct ClauseError {
  std::string reason;
};

[[noreturn]] void refuse(std::string reason) {
  throw ClauseError{std::move(reason)};
}

bool isControl(char character) {
  return static_cast<unsigned char>(character) < 0x20 || character == 0x7F;
}

// "KEYWORD:PART,PART,..." taken apart.
struct Clause {
  std::string_view keyword;
  std::vector<std::string_view> parts;

  explicit Clause(std::string_view text) {
    if (text.empty()) refuse("empty clause");
    const std::size_t colon = text.find(':');
    if (colon == std::string_view::npos) refuse("no ':' after the keyword");
    keyword = trimmed(text.substr(0, colon));
    text.remove_prefix(colon + 1);
    for (;;) {
      const std::size_t comma = text.find(',');
      parts.push_back(trimmed(text.substr(0, comma)));
      if (comma == std::string_view::npos) break;
      text.remove_prefix(comma + 1);
    }
    for (const std::string_view part : parts) {
      if (part.find_first_of(delimiters) != std::string_view::npos)
        refuse("a part holds one of : ' \"");
      if (part.find('\0') != std::string_view::npos) refuse("a part holds a zero byte");
    }
  }

  void requireParts(std::size_t fewest, std::size_t most, const char* expected) const {
    if (parts.size() < fewest || parts.size() > most)
      refuse(std::to_string(parts.size()) + (parts.size() == 1 ? " part" : " parts") +
             " instead of " + expected);
  }

  std::string shortestText() const {
    std::string text(keyword);
    char separator = ':';
    for (const std::string_view part : parts) {
      text += separator;
      text += part;
      separator = ',';
    }
    return text + ';';
  }
};

std::string nameOf(std::string_view part, std::size_t longest, const std::string& what) {
  if (part.empty() || part.size() > longest)
    refuse(what + " of " + std::to_string(part.size()) + " characters instead of 1 to " +
           std::to_string(longest));
  if (std::any_of(part.begin(), part.end(), isControl)) refuse(what + " holds a control character");
  return std::string(part);
}

template <class Named>
void requireNew(const std::vector<Named>& known, const std::string& name, const char* what) {
  for (const Named& each : known)
    if (each.name == name) refuse(std::string(what) + " appears twice");
}

// Takes the clauses one by one and checks what depends on their order.
class Reader {
 public:
  void take(std::string_view text) {
    Clause clause(text);
    if (_isFirst != (clause.keyword == "appl"))
      refuse(_isFirst ? "the first clause is not appl" : "appl appears twice");
    _isFirst = false;
    if (clause.keyword == "appl")
      takeAppl(clause);
    else if (clause.keyword == "type")
      takeType(clause);
    else if (clause.keyword == "help")
      takeHelp(clause);
    else if (clause.keyword == "group")
      takeGroup(clause);
    else if (clause.keyword == "attr")
      takeAttribute(&clause);
    else
      refuse("unknown keyword");
    _result.text += clause.shortestText();
  }

  bool lastGroupIsEmpty() const {
    return !_result.groups.empty() && _result.groups.back().attributes.empty();
  }
  bool hasGroup() const { return !_result.groups.empty(); }
  Registration& result() { return _result; }

 private:
  void takeAppl(const Clause& clause) {
    clause.requireParts(2, 2, "name and key");
    _result.applName = nameOf(clause.parts[0], longestApplName, "application name");
    _result.applKey = nameOf(clause.parts[1], applKeyLength, "application key");
    if (_result.applKey.size() != applKeyLength)
      refuse("application key of " + std::to_string(_result.applKey.size()) +
             " characters instead of 3");
  }

  void takeType(const Clause& clause) {
    if (std::exchange(_hasType, true)) refuse("type appears twice");
    clause.requireParts(1, 1, "one type name");
    const auto* end = std::end(ZORA_DPTypeNames);
    if (std::find(std::begin(ZORA_DPTypeNames), end, clause.parts[0]) == end)
      refuse("unknown provider type");
    _result.type = clause.parts[0];
  }

  void takeHelp(const Clause& clause) {
    if (std::exchange(_hasHelp, true)) refuse("help appears twice");
    clause.requireParts(1, 1, "one text");
    _result.help = clause.parts[0];
  }

  void takeGroup(const Clause& clause) {
    if (lastGroupIsEmpty())
      refuse("the group before it, " + _result.groups.back().name + ", has no attribute");
    clause.requireParts(1, 1, "one name");
    std::string name = nameOf(clause.parts[0], longestName, "group name");
    requireNew(_result.groups, name, "group");
    _result.groups.push_back({std::move(name), {}});
  }

  void takeAttribute(Clause* clause) {
    if (!hasGroup()) refuse("attribute before the first group");
    clause->requireParts(3, 4, "name, letter, size and help");
    std::vector<RegisteredAttribute>& attributes = _result.groups.back().attributes;
    RegisteredAttribute attribute;
    attribute.name = nameOf(clause->parts[0], longestName, "attribute name");
    requireNew(attributes, attribute.name, "attribute");
    const std::string_view letter = clause->parts[1];
    if (letter.size() != 1 || attributeLetters.find(letter) == std::string_view::npos)
      refuse("unknown attribute letter");
    attribute.letter = letter[0];
    attribute.size = valueSizeOf(clause->parts[2]);
    if (clause->parts.size() == 4) attribute.help = clause->parts[3];
    if (attribute.help.empty()) clause->parts.resize(3);
    attributes.push_back(std::move(attribute));
  }

  static int valueSizeOf(std::string_view part) {
    int size = 0;
    const char* end = part.data() + part.size();
    const auto [stopped, error] = std::from_chars(part.data(), end, size);
    if (error != std::errc() || stopped != end || size < 1 || size > largestAttributeSize)
      refuse("size is not a number from 1 to " + std::to_string(largestAttributeSize));
    return size;
  }

  Registration _result;
  bool _isFirst = true;
  bool _hasType = false;
  bool _hasHelp = false;
};

// "clause 4 <TEXT>: REASON", with a text that is fit for a log.
std::string describe(int number, std::string_view clause, const std::string& reason) {
  constexpr std::size_t longestShown = 100;
  std::string shown(clause.substr(0, longestShown));
  if (clause.size() > longestShown) shown += "...";
  std::replace_if(shown.begin(), shown.end(), isControl, '?');
  return "clause " + std::to_string(number) + " <" + shown + ">: " + reason;
}

}  // namespace

bool parseRegistration(std::string_view text, Registration* out, std::string* error) {
  Reader reader;
  int number = 0;
  std::string_view clause;
  try {
    while (!trimmed(text).empty()) {
      const std::size_t end = text.find(';');
      clause = trimmed(text.substr(0, end));
      ++number;
      if (end == std::string_view::npos) refuse("no ';' at its end");
      reader.take(clause);
      text.remove_prefix(end + 1);
    }
    if (number == 0) {
      number = 1;
      refuse("empty text");
    }
    if (!reader.hasGroup()) refuse("the text ends without a group");
    if (reader.lastGroupIsEmpty()) refuse("the group has no attribute");
  } catch (const ClauseError& problem) {
    *error = describe(number, clause, problem.reason);
    return false;
  }
  *out = std::move(reader.result());
  return true;
}

}  // namespace suite
