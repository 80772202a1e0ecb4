#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "tests/support/trace_lines.h"
#include "zora/zora.h"

namespace {

constexpr char unwritten[] = "unwritten";

std::string letters(std::size_t count) {
  return std::string(count, 's');
}

// One call of ZORA_SetSubnodeName and what it leaves in the caller's buffers, which are of exactly
// the size that the header asks for.
struct Subnode {
  std::string applName = "ABC";
  std::string attrGroup = "load";
  std::string srcName = "hostA";
  std::string RR = "00";
  const char* suffix = nullptr;
  bool wantsUntouched = false;

  int result = -1;
  std::string name{};
  std::string untouched{};

  Subnode& build() {
    std::vector<char> nameBuffer(ZORA_MAX_SUBNODE_NAME + 1 + (RR.size() > 2 ? RR.size() - 2 : 0));
    std::vector<char> untouchedBuffer(ZORA_MAX_UNTOUCHED_NAME + 1);
    std::strcpy(nameBuffer.data(), unwritten);
    std::strcpy(untouchedBuffer.data(), unwritten);
    result = ZORA_SetSubnodeName(applName.c_str(), attrGroup.c_str(), srcName.c_str(), RR.c_str(),
                                 nameBuffer.data(),
                                 wantsUntouched ? untouchedBuffer.data() : nullptr, suffix);
    name = nameBuffer.data();
    untouched = untouchedBuffer.data();
    return *this;
  }
};

void expectName(Subnode subnode, const std::string& name) {
  subnode.build();
  EXPECT_EQ(subnode.result, 0);
  EXPECT_EQ(subnode.name, name);
}

TEST(SetSubnodeName, JoinsSourceKeyAndRr) {
  expectTrace("ZORA_SetSubnodeName", [] {
    expectName({}, "hostA:ABC00");
    return Lines{
        detailLine("applName<ABC> srcName<hostA> attrGroup<load> RR<00>\n"),
        detailLine("subnodeName<hostA:ABC00> subnodeNameUntouched[NULL]\n"),
    };
  });
}

TEST(SetSubnodeName, PutsASuffixBehindAnUnderscore) {
  expectTrace("ZORA_SetSubnodeName", [] {
    expectName({.suffix = "X1"}, "hostA:ABC00_X1");
    return Lines{
        detailLine("applName<ABC> srcName<hostA> attrGroup<load> RR<00> subnodeSuffix<X1>\n"),
        detailLine("subnodeName<hostA:ABC00_X1> subnodeNameUntouched[NULL]\n"),
    };
  });
}

TEST(SetSubnodeName, AnEmptySuffixStillHasItsUnderscore) {
  expectName({.suffix = ""}, "hostA:ABC00_");
}

TEST(SetSubnodeName, CutsALongSourceFromItsLeftEnd) {
  const std::string source = "0123456789abcdefghijklmnopqrst";  // 30 characters, 4 too many
  expectTrace("ZORA_SetSubnodeName", [&] {
    expectName({.srcName = source}, "456789abcdefghijklmnopqrst:ABC00");
    return Lines{
        detailLine("applName<ABC> srcName<" + source + "> attrGroup<load> RR<00>\n"),
        detailLine("Truncating sourceName <" + source + "> length: 30, available: 26\n"),
        detailLine("sourceName truncated. New name <456789abcdefghijklmnopqrst>\n"),
        detailLine("subnodeName<456789abcdefghijklmnopqrst:ABC00> subnodeNameUntouched[NULL]\n"),
    };
  });
}

TEST(SetSubnodeName, CutsALongSourceForItsSuffixToo) {
  expectName({.srcName = "XX" + letters(23), .suffix = "12"}, letters(23) + ":ABC00_12");
}

TEST(SetSubnodeName, LeavesASourceThatJustFits) {
  for (const char* suffix : {static_cast<const char*>(nullptr), "12"}) {
    const std::size_t room = suffix == nullptr ? 26 : 23;
    const std::string behind = suffix == nullptr ? ":ABC00" : ":ABC00_12";
    expectName({.srcName = letters(room), .suffix = suffix}, letters(room) + behind);
    expectName({.srcName = "X" + letters(room), .suffix = suffix}, letters(room) + behind);
  }
}

TEST(SetSubnodeName, CountsRrAsTwoWhateverItsLength) {
  expectName({.srcName = letters(26), .RR = ""}, letters(26) + ":ABC");
  expectName({.srcName = letters(27), .RR = ""}, letters(26) + ":ABC");
  expectName({.srcName = letters(26), .RR = "12345"}, letters(26) + ":ABC12345");
}

TEST(SetSubnodeName, BuildsTheUntouchedNameFromTheSourceAsItWas) {
  const std::string source(letters(28));
  expectTrace("ZORA_SetSubnodeName", [&] {
    Subnode subnode{.srcName = source, .wantsUntouched = true};
    EXPECT_EQ(subnode.build().result, 0);
    EXPECT_EQ(subnode.name, letters(26) + ":ABC00");
    EXPECT_EQ(subnode.untouched, source + ":ABCload00");
    return Lines{
        detailLine("applName<ABC> srcName<" + source + "> attrGroup<load> RR<00>\n"),
        detailLine("Truncating sourceName <" + source + "> length: 28, available: 26\n"),
        detailLine("sourceName truncated. New name <" + letters(26) + ">\n"),
        detailLine("subnodeName<" + letters(26) + ":ABC00> subnodeNameUntouched<" + source +
                   ":ABCload00>\n"),
    };
  });
}

TEST(SetSubnodeName, TheUntouchedNameLeavesTheSuffixOut) {
  Subnode subnode{.suffix = "X1", .wantsUntouched = true};
  subnode.build();
  EXPECT_EQ(subnode.name, "hostA:ABC00_X1");
  EXPECT_EQ(subnode.untouched, "hostA:ABCload00");
}

TEST(SetSubnodeName, TheLongestUntouchedNameIsAccepted) {
  Subnode subnode{.attrGroup = letters(32), .srcName = letters(30), .wantsUntouched = true};
  EXPECT_EQ(subnode.build().result, 0);
  EXPECT_EQ(subnode.untouched, letters(30) + ":ABC" + letters(32) + "00");
  EXPECT_EQ(subnode.name, letters(26) + ":ABC00");
}

TEST(SetSubnodeName, ATooLongUntouchedNameFailsAndWritesNothing) {
  expectTrace("ZORA_SetSubnodeName", [] {
    Subnode subnode{.attrGroup = letters(32), .srcName = letters(31), .wantsUntouched = true};
    EXPECT_EQ(subnode.build().result, 1);
    EXPECT_EQ(subnode.name, unwritten);
    EXPECT_EQ(subnode.untouched, unwritten);
    return Lines{
        detailLine("applName<ABC> srcName<" + letters(31) + "> attrGroup<" + letters(32) +
                   "> RR<00>\n"),
        errorLine("Error: Length ([31] + [3] +[32] +[2])\n"),
    };
  });
}

TEST(SetSubnodeName, TheUntouchedLimitCountsAllOfRr) {
  EXPECT_EQ((Subnode{.RR = std::string(55, 'R'), .wantsUntouched = true}.build().result), 0);
  EXPECT_EQ((Subnode{.RR = std::string(56, 'R'), .wantsUntouched = true}.build().result), 1);
}

TEST(SetSubnodeName, WithoutAnUntouchedNameItsLimitDoesNotCount) {
  expectName({.attrGroup = letters(32), .srcName = letters(31)}, letters(26) + ":ABC00");
}

TEST(SetSubnodeName, OfSourceAndGroupTheFirst32CharactersCount) {
  Subnode subnode{.attrGroup = "g" + letters(500),
                  .srcName = "h" + letters(500),
                  .RR = "",
                  .wantsUntouched = true};
  EXPECT_EQ(subnode.build().result, 0) << "32 + 3 + 32 + 0 and 2 make 69";
  EXPECT_EQ(subnode.untouched, "h" + letters(31) + ":ABCg" + letters(31));
  EXPECT_EQ(subnode.name, letters(26) + ":ABC");
}

TEST(SetSubnodeName, ASourceMayVanish) {
  expectName({.suffix = "1234567890123456789012345"}, ":ABC00_1234567890123456789012345");
  expectName({.applName = std::string(29, 'A'), .srcName = ""}, ":" + std::string(29, 'A') + "00");
}

TEST(SetSubnodeName, FailsWhenNoCutIsEnough) {
  const std::string suffix(26, '9');
  expectTrace("ZORA_SetSubnodeName", [&] {
    Subnode subnode{.suffix = suffix.c_str(), .wantsUntouched = true};
    EXPECT_EQ(subnode.build().result, 1);
    EXPECT_EQ(subnode.name, unwritten);
    EXPECT_EQ(subnode.untouched, "hostA:ABCload00");
    return Lines{
        detailLine("applName<ABC> srcName<hostA> attrGroup<load> RR<00> subnodeSuffix<" + suffix +
                   ">\n"),
        errorLine("Error: no room for a source name in a subnode name with applName<ABC>\n"),
    };
  });
}

// ---- Source names ----------------------------------------------------------------------------

std::string sourceOf(const std::string& subnodeName) {
  const char* const source = ZORA_GetSrcNameFromSubNodeName(subnodeName.c_str());
  return source != nullptr ? source : "(null)";
}

TEST(GetSrcName, IsWhatStandsBeforeTheFirstColon) {
  expectTrace("ZORA_GetSrcNameFromSubNodeName", [] {
    EXPECT_EQ(sourceOf("hostA:ABC00_X:1"), "hostA");
    return Lines{
        entryLine(),
        flowLine("subnodeName<hostA:ABC00_X:1>\n"),
        eventLine("<<Exit: hostA>>\n"),
    };
  });
}

TEST(GetSrcName, SkipsColonsInFront) {
  EXPECT_EQ(sourceOf("::hostA:ABC00"), "hostA");
}

TEST(GetSrcName, OfANameThatEndsWithItsColon) {
  EXPECT_EQ(sourceOf("hostA:"), "hostA");
}

TEST(GetSrcName, IsOverwrittenByTheNextCall) {
  char* const first = ZORA_GetSrcNameFromSubNodeName("a-longer-host:ABC00");
  EXPECT_STREQ(first, "a-longer-host");
  EXPECT_EQ(ZORA_GetSrcNameFromSubNodeName("b:ABC00"), first);
  EXPECT_STREQ(first, "b");
}

TEST(GetSrcName, AFailureLeavesTheLastNameInPlace) {
  char* const first = ZORA_GetSrcNameFromSubNodeName("hostA:ABC00");
  EXPECT_EQ(ZORA_GetSrcNameFromSubNodeName("no colon"), nullptr);
  EXPECT_STREQ(first, "hostA");
}

TEST(GetSrcName, HasAtMost32Characters) {
  EXPECT_EQ(sourceOf(letters(32) + ":A"), letters(32));
  EXPECT_EQ(sourceOf(letters(33) + ":A"), letters(32));
}

TEST(GetSrcName, OfAVeryLongNameTheFirst70CharactersCount) {
  EXPECT_EQ(sourceOf(letters(69) + ":ABC" + letters(500)), letters(32));
  EXPECT_EQ(sourceOf(letters(70) + ":ABC" + letters(500)), "(null)") << "the colon is not seen";
}

TEST(GetSrcName, OfANullNameIsAnError) {
  expectTrace("ZORA_GetSrcNameFromSubNodeName", [] {
    EXPECT_EQ(ZORA_GetSrcNameFromSubNodeName(nullptr), nullptr);
    return Lines{entryLine(), errorLine("Error: subnodeName was NULL.\n")};
  });
}

TEST(GetSrcName, WithoutAColonIsAnError) {
  for (const std::string name : {"hostA", ""}) {
    expectTrace("ZORA_GetSrcNameFromSubNodeName", [&] {
      EXPECT_EQ(ZORA_GetSrcNameFromSubNodeName(name.c_str()), nullptr);
      return Lines{
          entryLine(),
          flowLine("subnodeName<" + name + ">\n"),
          errorLine("Error: could not determine sourceName from <" + name + ">\n"),
      };
    });
  }
}

TEST(GetSrcName, OfNothingButColonsIsAnError) {
  for (const std::string name : {":", ":::"}) {
    expectTrace("ZORA_GetSrcNameFromSubNodeName", [&] {
      EXPECT_EQ(ZORA_GetSrcNameFromSubNodeName(name.c_str()), nullptr);
      return Lines{
          entryLine(),
          flowLine("subnodeName<" + name + ">\n"),
          errorLine("Error: could not find ':' token in <" + name + ">\n"),
      };
    });
  }
}

// ---- Application keys ------------------------------------------------------------------------

// The key in a buffer of exactly the size that the header asks for.
struct Key {
  explicit Key(const char* subnodeName) {
    std::vector<char> buffer = {'o', 'l', 'd', '\0'};
    result = ZORA_GetApplKeyFromSubNodeName(subnodeName, buffer.data());
    text = buffer.data();
    last = buffer[3];
  }
  explicit Key(const std::string& subnodeName) : Key(subnodeName.c_str()) {}

  int result;
  std::string text;
  char last;
};

TEST(GetApplKey, IsTheThreeCharactersBehindTheColon) {
  expectTrace("ZORA_GetApplKeyFromSubNodeName", [] {
    const Key key("hostA:ABC00_X1");
    EXPECT_EQ(key.result, 0);
    EXPECT_EQ(key.text, "ABC");
    return Lines{flowLine("subnodeName[hostA:ABC00_X1]\n"), flowLine("applKey[ABC]\n")};
  });
}

TEST(GetApplKey, MayBeShorter) {
  for (const std::string text : {"AB", "A"}) {
    const Key key("hostA:" + text);
    EXPECT_EQ(key.result, 0);
    EXPECT_EQ(key.text, text);
    EXPECT_EQ(key.last, '\0');
  }
}

TEST(GetApplKey, OfAnUntouchedNameIsTheSame) {
  EXPECT_EQ(Key("hostA:ABCload00").text, "ABC");
}

TEST(GetApplKey, EndsAtALineEnd) {
  EXPECT_EQ(Key("hostA:AB\nC").text, "AB");
}

TEST(GetApplKey, MayHoldAnyOtherDelimiter) {
  EXPECT_EQ(Key("hostA::ABC").text, ":AB");
  EXPECT_EQ(Key("hostA:A_C00_X1").text, "A_C");
  EXPECT_EQ(Key("hostA:A C").text, "A C");
}

TEST(GetApplKey, OfNothingButColonsLeavesTheBufferAlone) {
  for (const std::string name : {":", ":::"}) {
    expectTrace("ZORA_GetApplKeyFromSubNodeName", [&] {
      const Key key(name);
      EXPECT_EQ(key.result, 0);
      EXPECT_EQ(key.text, "old");
      return Lines{flowLine("subnodeName[" + name + "]\n")};
    });
  }
}

// A source is looked for behind the colons in front, and the key then as far from the beginning of
// the name as if there were none.
TEST(GetApplKey, OfANameThatBeginsWithAColonIsOfNoUse) {
  for (const char* name : {":hostA:ABC00", ":ABC00"}) {
    const Key key(name);
    EXPECT_EQ(key.result, 1) << name;
    EXPECT_EQ(key.text, "old");
  }
  for (const char* name : {"::hostA:ABC00", ":::hostA:ABC00", "::ABC00"}) {
    const Key key(name);
    EXPECT_EQ(key.result, 0) << name;
    EXPECT_NE(key.text, "ABC");
    EXPECT_NE(key.text, "old");
  }
}

TEST(GetApplKey, OfANullArgumentIsAnError) {
  expectTrace("ZORA_GetApplKeyFromSubNodeName", [] {
    EXPECT_EQ(Key(nullptr).result, 1);
    return Lines{errorLine("Error: subnodeName was NULL.\n")};
  });
  expectTrace("ZORA_GetApplKeyFromSubNodeName", [] {
    EXPECT_EQ(ZORA_GetApplKeyFromSubNodeName("hostA:ABC", nullptr), 1);
    return Lines{errorLine("Error: subnodeName was NULL.\n")};
  });
}

TEST(GetApplKey, WithoutAColonIsAnError) {
  expectTrace("ZORA_GetApplKeyFromSubNodeName", [] {
    const Key key("hostA");
    EXPECT_EQ(key.result, 1);
    EXPECT_EQ(key.text, "old");
    return Lines{
        flowLine("subnodeName[hostA]\n"),
        errorLine("Error: could not determine sourceName from[hostA]\n"),
    };
  });
}

TEST(GetApplKey, WithNothingBehindTheColonIsAnError) {
  for (const std::string name : {"hostA:", "hostA:\n", ":hostA:"}) {
    expectTrace("ZORA_GetApplKeyFromSubNodeName", [&] {
      const Key key(name);
      EXPECT_EQ(key.result, 1);
      EXPECT_EQ(key.text, "old");
      return Lines{
          flowLine("subnodeName[" + name + "]\n"),
          errorLine("Error: parsing [" + name + "]\n"),
      };
    });
  }
}

TEST(GetApplKey, OfAVeryLongNameTheFirst32CharactersCount) {
  EXPECT_EQ(Key(letters(28) + ":ABCD").text, "ABC");
  EXPECT_EQ(Key(letters(30) + ":ABCD" + letters(500)).text, "A");
  EXPECT_EQ(Key(letters(31) + ":ABC").result, 1) << "nothing is seen behind the colon";
  EXPECT_EQ(Key(letters(32) + ":ABC").result, 1) << "the colon is not seen";
}

}  // namespace
