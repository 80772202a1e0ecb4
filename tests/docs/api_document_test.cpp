// docs/api.md is made from the comments of the two public headers. To bring it up to date after a
// change of those, run this test with ZORD410_UPDATE_DOCUMENTS=1 in its environment.
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <regex>
#include <set>
#include <sstream>
#include <string>

namespace {

std::string read(const std::string& path) {
  std::ifstream file(path);
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

bool startsWith(const std::string& text, const std::string& start) {
  return text.compare(0, start.size(), start) == 0;
}

std::string trimmed(const std::string& text) {
  const std::size_t first = text.find_first_not_of(" \t");
  if (first == std::string::npos) return "";
  return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

// The name that a declaration declares: what stands before its arguments, or before its brackets.
std::string declaredName(const std::string& declaration) {
  static const std::regex name(R"((\w+)\s*[\(\[])");
  std::smatch match;
  return std::regex_search(declaration, match, name) ? match[1].str() : "";
}

// Turns one header into sections of a document.
class HeaderReader {
 public:
  explicit HeaderReader(const std::string& text) : _lines(text) {}

  std::string document() {
    std::string line;
    std::getline(_lines, line);
    _document = commentFrom(line) + "\n";  // the conventions
    while (std::getline(_lines, line)) {
      if (startsWith(line, "/* ----"))
        _document += "## " + titleOf(line) + "\n\n";
      else if (startsWith(line, "/*"))
        _comment = commentFrom(line);
      else if (isDeclaration(line))
        addDeclarations(line);
    }
    return _document;
  }

  std::set<std::string> names;

 private:
  static std::string titleOf(const std::string& line) {
    const std::size_t first = line.find_first_not_of("/*- ");
    return line.substr(first, line.find(" -", first) - first);
  }

  static bool isDeclaration(const std::string& line) {
    return line.find('(') != std::string::npos || startsWith(line, "extern const");
  }

  // The comment without its marks. What is indented, examples and tables, is shown as it is.
  std::string commentFrom(std::string line) {
    std::string comment;
    std::size_t textIndent = 1;  // of the paragraph or the list item that a line belongs to
    bool wasExample = false;
    line = line.substr(2);
    for (bool more = true; more; more = more && std::getline(_lines, line)) {
      const std::size_t end = line.find("*/");
      more = end == std::string::npos;
      std::string text = line.substr(0, end);
      if (startsWith(text, " *")) text = text.substr(2);
      if (startsWith(text, " ")) text = text.substr(1);
      while (!text.empty() && text.back() == ' ') text.pop_back();
      if (startsWith(text, " - ")) textIndent = 3;
      const bool isExample =
          text.find_first_not_of(' ') > textIndent && text.find_first_not_of(' ') < text.size();
      if (isExample != wasExample && !text.empty()) comment += "\n";
      comment += (isExample ? "    " + text : text) + "\n";
      wasExample = isExample;
    }
    while (comment.size() > 1 && comment[comment.size() - 2] == '\n') comment.pop_back();
    return comment;
  }

  // One or more declarations that share a comment, up to the next blank line.
  void addDeclarations(std::string line) {
    std::string declarations;
    std::string heading;
    std::string current;
    do {
      declarations += line + "\n";
      current += line;
      if (line.find(';') == std::string::npos) continue;
      names.insert(declaredName(current));
      heading += (heading.empty() ? "`" : ", `") + declaredName(current) + "`";
      current.clear();
    } while (std::getline(_lines, line) && !trimmed(line).empty());
    _document += "### " + heading + "\n\n```c\n" + declarations + "```\n\n" + _comment + "\n";
  }

  std::istringstream _lines;
  std::string _document;
  std::string _comment;
};

// The names that the version map exports for compiled programs.
std::set<std::string> exportedNames() {
  const std::string map = read(SOURCE_DIRECTORY "/zordchcl/zord410.map");
  std::istringstream lines(map.substr(0, map.find("local:")));
  std::set<std::string> names;
  std::string line;
  while (std::getline(lines, line))
    if (line.find(';') != std::string::npos) names.insert(trimmed(line.substr(0, line.find(';'))));
  return names;
}

constexpr char introduction[] =
    "# The interface\n\n"
    "Every function that `libzord410.so` exports under `version_1.0`, from the comments of its "
    "two\n"
    "headers.\n\n";

TEST(ApiDocument, SaysWhatTheHeadersSay) {
  HeaderReader channel(read(SOURCE_DIRECTORY "/zordchcl/zordchcl.h"));
  HeaderReader utilities(read(SOURCE_DIRECTORY "/zora/zora.h"));
  const std::string expected = introduction + ("# zordchcl.h\n\n" + channel.document()) +
                               "# zora.h\n\n" + utilities.document();
  const char* const path = SOURCE_DIRECTORY "/docs/api.md";
  if (std::getenv("ZORD410_UPDATE_DOCUMENTS") != nullptr) std::ofstream(path) << expected;
  EXPECT_EQ(read(path), expected);
}

TEST(ApiDocument, CoversExactlyWhatTheLibraryExports) {
  HeaderReader channel(read(SOURCE_DIRECTORY "/zordchcl/zordchcl.h"));
  HeaderReader utilities(read(SOURCE_DIRECTORY "/zora/zora.h"));
  channel.document();
  utilities.document();
  std::set<std::string> documented = channel.names;
  documented.insert(utilities.names.begin(), utilities.names.end());
  EXPECT_EQ(documented, exportedNames());
}

}  // namespace
