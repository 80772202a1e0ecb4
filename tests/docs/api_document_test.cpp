// docs/api.md is made from the comments of the two public headers. To bring it up to date after a
// change of those, run this test with ZORD410_UPDATE_DOCUMENTS=1 in its environment.
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

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

// A part of a header, up to the next blank line: a comment, code, or both.
struct Block {
  std::string comment;  // without its marks
  std::string code;
};

// The comment that begins with `line`, without its marks; `code` gets the lines behind it. What is
// indented, examples and tables, is shown as it is.
std::string commentFrom(std::string line, std::istream* lines) {
  std::string comment;
  std::size_t textIndent = 1;  // of the paragraph or the list item that a line belongs to
  bool wasExample = false;
  line = line.substr(2);
  for (bool more = true; more; more = more && std::getline(*lines, line)) {
    const std::size_t end = line.find("*/");
    more = end == std::string::npos;
    std::string text = line.substr(0, end);
    if (startsWith(text, " *")) text = text.substr(2);
    if (startsWith(text, " ")) text = text.substr(1);
    while (!text.empty() && text.back() == ' ') text.pop_back();
    if (startsWith(text, " - ")) textIndent = 3;
    const std::size_t indent = text.find_first_not_of(' ');
    const bool isExample = indent != std::string::npos && indent > textIndent;
    if (isExample != wasExample && !text.empty()) comment += "\n";
    comment += (isExample ? "    " + text : text) + "\n";
    wasExample = isExample;
  }
  while (comment.size() > 1 && comment[comment.size() - 2] == '\n') comment.pop_back();
  return comment;
}

bool nextBlock(std::istream* lines, Block* block) {
  *block = {};
  std::string line;
  while (std::getline(*lines, line)) {
    if (line.empty()) {
      if (!block->comment.empty() || !block->code.empty()) return true;
    } else if (startsWith(line, "/*")) {
      block->comment = commentFrom(line, lines);
    } else {
      block->code += line + "\n";
    }
  }
  return !block->comment.empty() || !block->code.empty();
}

// What is there for compilers alone: the guard, other headers, C++'s linkage.
bool isScaffolding(const std::string& code) {
  for (const char* start : {"#ifndef", "#include", "#ifdef __cplusplus", "#endif"})
    if (startsWith(code, start)) return true;
  return false;
}

std::vector<std::string> matches(const std::string& text, const char* expression) {
  const std::regex regex(expression);
  std::vector<std::string> found;
  for (std::sregex_iterator match(text.begin(), text.end(), regex), end; match != end; ++match)
    found.push_back((*match)[1]);
  return found;
}

std::string withoutComments(const std::string& code) {
  return std::regex_replace(code, std::regex(R"(/\*[^]*?\*/)"), "");
}

// The names of functions and tables: what stands before the arguments, or before the brackets.
std::vector<std::string> functionsIn(const std::string& code) {
  return matches(code, R"((\w+)\s*(?:\([^()]*\)|\[[^\[\]]*\]);)");
}

// The names that a block of code declares.
std::vector<std::string> namesIn(const std::string& code) {
  const std::string bare = withoutComments(code);
  if (startsWith(bare, "enum")) return matches(bare, R"((\w+)\s*=)");
  if (bare.find("typedef") != std::string::npos) return {matches(bare, R"(\s(\w+);)").front()};
  return functionsIn(bare);
}

// Turns one header into sections of a document.
std::string documentOf(const std::string& header) {
  std::istringstream lines(header);
  Block block;
  if (!nextBlock(&lines, &block)) return "";
  std::string document = block.comment + "\n";  // the conventions
  while (nextBlock(&lines, &block)) {
    if (isScaffolding(block.code)) continue;
    if (startsWith(block.comment, "----")) {
      const std::size_t first = block.comment.find_first_not_of("- ");
      const std::size_t last = block.comment.find(" -", first);
      document += "## " + block.comment.substr(first, last - first) + "\n\n";
      continue;
    }
    if (!block.code.empty()) {
      std::string heading;
      for (const std::string& name : namesIn(block.code))
        heading += (heading.empty() ? "`" : ", `") + name + "`";
      document += "### " + heading + "\n\n```c\n" + block.code + "```\n\n";
    }
    if (!block.comment.empty()) document += block.comment + "\n";
  }
  return document;
}

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
    "Every function that `libzord410.so` exports under `version_1.0`, with the constants and types "
    "that\n"
    "go with them, from the comments of its two headers.\n\n";

const std::string channelHeader = read(SOURCE_DIRECTORY "/zordchcl/zordchcl.h");
const std::string utilitiesHeader = read(SOURCE_DIRECTORY "/zora/zora.h");

std::string apiDocument() {
  return read(SOURCE_DIRECTORY "/docs/api.md");
}

TEST(ApiDocument, SaysWhatTheHeadersSay) {
  const std::string expected = introduction + ("# zordchcl.h\n\n" + documentOf(channelHeader)) +
                               "# zora.h\n\n" + documentOf(utilitiesHeader);
  if (std::getenv("ZORD410_UPDATE_DOCUMENTS") != nullptr)
    std::ofstream(SOURCE_DIRECTORY "/docs/api.md") << expected;
  EXPECT_EQ(apiDocument(), expected);
}

// The tests that follow do not ask how the document is made.

// Every line of every comment, without its marks.
std::vector<std::string> commentLines(const std::string& header) {
  std::vector<std::string> texts;
  for (const std::string& comment : matches(header, R"((/\*[^]*?\*/))")) {
    std::istringstream lines(comment);
    std::string line;
    while (std::getline(lines, line)) {
      const std::size_t first = line.find_first_not_of("/*- ");
      if (first == std::string::npos) continue;
      line = line.substr(first, line.find_last_not_of("/*- ") - first + 1);
      texts.push_back(line);
    }
  }
  return texts;
}

TEST(ApiDocument, LosesNoLineOfAComment) {
  const std::string document = apiDocument();
  for (const std::string& header : {channelHeader, utilitiesHeader}) {
    // The guard's own comment is no sentence.
    const std::string sentences = header.substr(0, header.rfind("#endif"));
    for (const std::string& line : commentLines(sentences))
      EXPECT_NE(document.find(line), std::string::npos) << "the document lacks: " << line;
  }
}

TEST(ApiDocument, NamesEveryConstantAndType) {
  const std::string document = apiDocument();
  for (const std::string& header : {channelHeader, utilitiesHeader}) {
    const std::string code = withoutComments(header);
    std::vector<std::string> names = matches(code, R"((\w+) = \d+)");
    EXPECT_GE(names.size(), 5u);
    for (const std::string& name : matches(code, R"(typedef \w+ (\w+);)")) names.push_back(name);
    for (const std::string& name : names)
      EXPECT_NE(document.find("`" + name + "`"), std::string::npos) << name;
  }
}

TEST(ApiDocument, GivesEveryExportedFunctionAContract) {
  const std::string document = apiDocument();
  for (const std::string& name : exportedNames()) {
    const std::size_t heading = document.find("`" + name + "`");
    ASSERT_NE(heading, std::string::npos) << name;
    const std::size_t behindCode = document.find("```\n\n", document.find("```c\n", heading)) + 5;
    const std::string contract = document.substr(behindCode, document.find('\n', behindCode));
    EXPECT_FALSE(contract.empty() || contract[0] == '#') << name << " has no contract";
  }
}

TEST(ApiDocument, CoversExactlyWhatTheLibraryExports) {
  std::set<std::string> documented;
  for (const std::string& header : {channelHeader, utilitiesHeader})
    for (const std::string& name : functionsIn(withoutComments(header))) documented.insert(name);
  EXPECT_EQ(documented, exportedNames());
}

}  // namespace
