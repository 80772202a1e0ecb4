#include "dch/link/provider_line.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "zordchcl/zordchcl.h"

namespace dch {
namespace {

using Kind = ProviderFact::Kind;

constexpr char hostText[] = "appl:HOST.MON,KEY;help:Loads of hosts;group:load;attr:a,A,4;";
constexpr char hostLine[] =
    "A HOST.MON appl:HOST.MON,KEY;help:Loads%20of%20hosts;group:load;attr:a,A,4;";

class ProviderLineTest : public testing::Test {
 protected:
  std::optional<ProviderFact> parse(const std::string& line) {
    return parseProviderLine(line, _registrations);
  }
  // What is written of what is read.
  std::string again(const std::string& line) {
    const auto fact = parse(line);
    return fact ? providerLine(*fact) : "nothing";
  }

  SharedRegistrations _registrations;
};

TEST_F(ProviderLineTest, SaysWithWhichTextAnApplicationIsRegistered) {
  const auto fact = parse(hostLine);
  ASSERT_TRUE(fact);
  EXPECT_EQ(fact->kind, Kind::registered);
  EXPECT_EQ(fact->application, "HOST.MON");
  EXPECT_EQ(fact->registration, _registrations.of(hostText));
  EXPECT_EQ(providerLine(*fact), hostLine);
}

TEST_F(ProviderLineTest, SaysThatAnApplicationIsNotRegistered) {
  const ProviderFact fact{.kind = Kind::unregistered, .application = "HOST MON"};
  EXPECT_EQ(providerLine(fact), "U HOST%20MON");
  const auto read = parse("U HOST%20MON");
  ASSERT_TRUE(read);
  EXPECT_EQ(read->kind, Kind::unregistered);
  EXPECT_EQ(read->application, "HOST MON");
}

TEST_F(ProviderLineTest, SaysWhetherASourceIsOnLine) {
  for (const auto& [kind, line] : {std::pair{Kind::online, "S HOST load host/1%0A"},
                                   {Kind::offline, "G HOST load host/1%0A"}}) {
    EXPECT_EQ(
        providerLine({.kind = kind, .application = "HOST", .group = "load", .source = "host/1\n"}),
        line);
    const auto read = parse(line);
    ASSERT_TRUE(read);
    EXPECT_EQ(read->kind, kind);
    EXPECT_EQ(read->application, "HOST");
    EXPECT_EQ(read->group, "load");
    EXPECT_EQ(read->source, "host/1\n");
  }
}

TEST_F(ProviderLineTest, ASourceMayHaveNoName) {
  EXPECT_EQ(again("S HOST load %"), "S HOST load %");
  EXPECT_EQ(parse("S HOST load %")->source, "");
}

TEST_F(ProviderLineTest, TakesNamesOfTheLengthsThatProvidersMayGive) {
  const std::string application(suite::longestApplName, 'a'), group(suite::longestName, 'g'),
      source(DCH_MAX_SOURCE_NAME, 's');
  EXPECT_TRUE(parse("S " + application + ' ' + group + ' ' + source));
  EXPECT_FALSE(parse("S " + application + "a " + group + ' ' + source));
  EXPECT_FALSE(parse("S " + application + ' ' + group + "g " + source));
  EXPECT_FALSE(parse("S " + application + ' ' + group + ' ' + source + 's'));
  EXPECT_TRUE(parse("U " + application));
  EXPECT_FALSE(parse("U " + application + 'a'));
  EXPECT_FALSE(parse("S % g s"));
  EXPECT_FALSE(parse("S a % s"));
  EXPECT_FALSE(parse("U %"));
}

TEST_F(ProviderLineTest, TakesNoLineThatWasWrittenDifferently) {
  for (const char* line :
       {"", "A", "A ", "S", "S ", "S a", "S a g", "S a g ", "S a g s ", "S a g s\n", " S a g s",
        "S  a g s", "X a g s", "S a g %41", "S a g %0a", "S a g s%00", "S a%00 g s", "U ", "U a b",
        "u a", "A HOST", "A HOST ", "A HOST %", "A HOST nonsense",
        // of another application, and not in the shortest form
        "A DISK appl:HOST,KEY;group:load;attr:a,A,4;",
        "A HOST appl:HOST,KEY;%20group:load;attr:a,A,4;"})
    EXPECT_FALSE(parse(line)) << line;
}

TEST_F(ProviderLineTest, FactsOfTheSameHaveTheSameKey) {
  EXPECT_EQ(providerKey(*parse(hostLine)), "A HOST.MON");
  EXPECT_EQ(providerKey(*parse("U HOST.MON")), "A HOST.MON");
  EXPECT_EQ(providerKey(*parse("S HOST load a%20b")), "S HOST load a%20b");
  EXPECT_EQ(providerKey(*parse("G HOST load a%20b")), "S HOST load a%20b");
}

TEST_F(ProviderLineTest, ApplicationsComeBeforeSources) {
  std::vector<std::string> keys;
  for (const char* line : {"S HOST load a", "U Z", "S A load a", "U HOST"})
    keys.push_back(providerKey(*parse(line)));
  std::sort(keys.begin(), keys.end());
  EXPECT_EQ(keys, (std::vector<std::string>{"A HOST", "A Z", "S A load a", "S HOST load a"}));
}

}  // namespace
}  // namespace dch
