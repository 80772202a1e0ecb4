// The dumps and tables in docs/protocol.md are those of the library. To bring the dumps up to date
// after a change of the protocol, run this test with ZORD410_UPDATE_DOCUMENTS=1 in its environment.
#include <gtest/gtest.h>

#include <cctype>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <regex>
#include <set>
#include <sstream>

#include "suite/fields.h"
#include "tests/docs/protocol_examples.h"
#include "zordchcl/status.h"

namespace {

constexpr std::size_t bytesPerLine = 16;
constexpr char marker[] = "<!-- dump: ";

std::string read(const char* path) {
  std::ifstream file(path);
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

// Lines of offset, bytes and characters, as hexadecimal dumps usually look.
std::string dumpOf(const std::string& bytes) {
  std::string dump;
  char cell[32];
  for (std::size_t line = 0; line < bytes.size(); line += bytesPerLine) {
    std::snprintf(cell, sizeof cell, "%04zx ", line);
    dump += cell;
    std::string characters;
    for (std::size_t i = line; i < line + bytesPerLine; ++i) {
      if (i < bytes.size()) {
        const auto byte = static_cast<unsigned char>(bytes[i]);
        std::snprintf(cell, sizeof cell, " %02x", byte);
        dump += cell;
        characters += std::isprint(byte) != 0 ? static_cast<char>(byte) : '.';
      } else {
        dump += "   ";
      }
    }
    dump += "  " + characters + "\n";
  }
  return dump;
}

struct Regenerated {
  std::string text;
  std::set<std::string> dumps;  // the names of those that the document shows
};

// The document with every dump made anew: what stands between a marker's fences is replaced.
Regenerated regenerate(const std::string& document,
                       const std::map<std::string, std::string>& examples) {
  Regenerated result;
  std::istringstream lines(document);
  std::string line;
  while (std::getline(lines, line)) {
    result.text += line + "\n";
    if (line.rfind(marker, 0) != 0) continue;
    const std::string name =
        line.substr(sizeof marker - 1, line.find(" -->") - (sizeof marker - 1));
    const auto example = examples.find(name);
    EXPECT_NE(example, examples.end()) << "the document shows an unknown message: " << name;
    std::getline(lines, line);
    EXPECT_EQ(line, "```") << name;
    while (std::getline(lines, line) && line != "```") {
    }
    if (example == examples.end()) continue;
    result.text += "```\n" + dumpOf(example->second) + "```\n";
    result.dumps.insert(name);
  }
  return result;
}

TEST(ProtocolDocument, ShowsEveryMessageAsTheLibrarySendsIt) {
  const std::map<std::string, std::string> examples = protocolExamples();
  const std::string document = read(PROTOCOL_DOCUMENT);
  const Regenerated regenerated = regenerate(document, examples);
  for (const auto& [name, bytes] : examples)
    EXPECT_TRUE(regenerated.dumps.count(name) == 1) << "the document lacks: " << name;
  if (std::getenv("ZORD410_UPDATE_DOCUMENTS") != nullptr)
    std::ofstream(PROTOCOL_DOCUMENT) << regenerated.text;
  EXPECT_EQ(document, regenerated.text);
}

const char* nameOf(ZOR0_FieldLayout layout) {
  switch (layout) {
    case ZOR0_FieldLayout::fixed16:
      return "16-bit";
    case ZOR0_FieldLayout::fixed32:
      return "32-bit";
    case ZOR0_FieldLayout::text:
      return "text";
    case ZOR0_FieldLayout::bytes:
      return "bytes";
    case ZOR0_FieldLayout::attributeValue:
      return "attribute value";
    default:
      return "";
  }
}

TEST(ProtocolDocument, HasEveryFieldTypeWithItsLayout) {
  static const std::regex row(R"(\n\| (\d+) \(0x([0-9a-f]+)\) \| `DCH_\w+` \| ([^|,]*)[ ,])");
  const std::string document = read(PROTOCOL_DOCUMENT);
  std::map<int, std::string> shown;
  for (std::sregex_iterator match(document.begin(), document.end(), row), end; match != end;
       ++match) {
    const int code = std::stoi((*match)[1]);
    EXPECT_EQ(std::stoi((*match)[2], nullptr, 16), code);
    shown[code] = (*match)[3];
  }
  std::map<int, std::string> known;
  for (int code = SHRT_MIN; code <= SHRT_MAX; ++code) {
    const ZOR0_FieldLayout layout = ZOR0_LayoutOfField(static_cast<short>(code));
    if (layout != ZOR0_FieldLayout::unknown) known[code] = nameOf(layout);
  }
  EXPECT_EQ(shown, known);
}

TEST(ProtocolDocument, HasEveryStatusOfTheDch) {
  const std::string document = read(PROTOCOL_DOCUMENT);
  for (const DCH_StatusEntry& status : DCH_statusTable) {
    const std::string row = "\n| " + std::to_string(status.number) + " | " + status.text + " |\n";
    const bool travels = status.number == DCH_STATUS_OK || status.number >= DCH_STATUS_MALFORMED;
    EXPECT_EQ(document.find(row) != std::string::npos, travels) << row;
  }
}

}  // namespace
