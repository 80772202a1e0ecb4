#include "dch/link/provider_lines.h"

#include <gtest/gtest.h>

#include <string>

#include "dch/link/provider_line.h"

namespace dch {
namespace {

constexpr char diskLine[] = "A DISK appl:DISK,KEY;group:load;attr:a,A,4;\n";

class ProviderLinesTest : public testing::Test {
 protected:
  // The same lines once more, "nothing" when they are refused.
  std::string lines(const std::string& text) {
    return textOf(parseProviderLines(text, _registrations));
  }
  std::string piece(const std::string& text, const std::string& key) {
    _key = key;
    return textOf(parseProviderPiece(text, &_key, _registrations));
  }
  static std::string textOf(const std::optional<std::vector<ProviderFact>>& facts) {
    if (!facts) return "nothing";
    std::string text;
    for (const ProviderFact& fact : *facts) text += providerLine(fact) + '\n';
    return text;
  }

  SharedRegistrations _registrations;
  std::string _key;
};

TEST_F(ProviderLinesTest, TakesLinesInAnyOrder) {
  for (const std::string text : {"", "U A\n", "S B g s\nU A\nG B g s\nS B g s\n"})
    EXPECT_EQ(lines(text), text);
}

TEST_F(ProviderLinesTest, TakesAllLinesOrNone) {
  for (const char* text : {"U A", "\n", "U A\n\n", "U A\nnonsense\n", "U A\nU B", "U A\r\n"})
    EXPECT_EQ(lines(text), "nothing") << text;
}

TEST_F(ProviderLinesTest, APieceSaysWhatIsThereInOrder) {
  const std::string text = diskLine + std::string("S A g s\nS DISK load %\nS DISK load a\n");
  EXPECT_EQ(piece(text, ""), text);
  EXPECT_EQ(_key, "S DISK load a");
  EXPECT_EQ(piece("S DISK load b\n", _key), "S DISK load b\n");
  EXPECT_EQ(_key, "S DISK load b");
}

TEST_F(ProviderLinesTest, AnEmptyPieceLeavesTheKey) {
  EXPECT_EQ(piece("", "S A g s"), "");
  EXPECT_EQ(_key, "S A g s");
}

TEST_F(ProviderLinesTest, APieceBeginsBehindTheKey) {
  EXPECT_EQ(piece("S A g s\n", "S A g s"), "nothing");
  EXPECT_EQ(piece("S A g r\n", "S A g s"), "nothing");
  EXPECT_EQ(piece(diskLine, "S A g s"), "nothing");
  EXPECT_EQ(_key, "S A g s");
}

TEST_F(ProviderLinesTest, APieceInAnyOtherOrderIsNone) {
  EXPECT_EQ(piece("S A g s\nS A g s\n", ""), "nothing");
  EXPECT_EQ(piece("S B g s\nS A g s\n", ""), "nothing");
  EXPECT_EQ(piece(std::string("S A g s\n") + diskLine, ""), "nothing");
}

TEST_F(ProviderLinesTest, APieceSaysNothingOfWhatIsNotThere) {
  EXPECT_EQ(piece("U A\n", ""), "nothing");
  EXPECT_EQ(piece("G A g s\n", ""), "nothing");
}

}  // namespace
}  // namespace dch
