#include "dch/link/own_providers.h"

#include <gmock/gmock.h>

#include <initializer_list>
#include <random>
#include <sstream>
#include <utility>
#include <vector>

#include "dch/testkit/registry_changes.h"

namespace dch {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

using Kind = ProviderFact::Kind;

constexpr char loadText[] = "appl:HOSTMON,HMN;group:load;attr:load1,D,16;";
constexpr char loadLine[] = "A HOSTMON appl:HOSTMON,HMN;group:load;attr:load1,D,16;";

ProviderFact registeredFact(const std::string& text = loadText) {
  auto registration = std::make_shared<const suite::Registration>(testkit::registrationOf(text));
  return {.kind = Kind::registered,
          .application = registration->applName,
          .registration = registration};
}

ProviderFact unregisteredFact() {
  return {.kind = Kind::unregistered, .application = "HOSTMON"};
}

ProviderFact factOfSource(Kind kind, const std::string& source) {
  return {.kind = kind, .application = "HOSTMON", .group = "load", .source = source};
}

std::vector<std::string> providerLinesOf(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}

class OwnProvidersTest : public ::testing::Test {
 protected:
  void begin(std::vector<ProviderFact> facts, bool isAll = true) {
    _providers.take({.kind = ProviderNews::Kind::first, .facts = std::move(facts), .isAll = isAll});
  }
  void tell(std::vector<ProviderFact> facts, bool isAll = false) {
    _providers.take({.facts = std::move(facts), .isAll = isAll});
  }

  // Between these revisions.
  void expectChanges(std::uint64_t from, std::uint64_t to, const std::vector<std::string>& lines) {
    const OwnProviders::Changes changes = _providers.changes();
    EXPECT_EQ(changes.from, from);
    EXPECT_EQ(changes.to, to);
    EXPECT_EQ(providerLinesOf(changes.text), lines);
  }

  // By asking until there is no more.
  std::vector<std::string> allLines() {
    std::vector<std::string> lines;
    std::string key;
    for (;;) {
      const OwnProviders::Piece piece = _providers.answer(key);
      for (const std::string& each : providerLinesOf(piece.text)) lines.push_back(each);
      if (piece.isAll) return lines;
      key = lines.back();  // of a source the line is the key
    }
  }

  OwnProviders _providers;
};

TEST_F(OwnProvidersTest, SaysNothingUntilAllIsKnown) {
  begin({registeredFact()}, false);
  EXPECT_EQ(_providers.revision(), 0u);
  expectChanges(0, 0, {});
  tell({factOfSource(Kind::online, "web1")});
  EXPECT_EQ(_providers.revision(), 0u);
  tell({factOfSource(Kind::online, "")}, true);
  EXPECT_EQ(_providers.revision(), 1u);
  expectChanges(1, 1, {});
  EXPECT_THAT(allLines(), ElementsAre(loadLine, "S HOSTMON load %", "S HOSTMON load web1"));
}

TEST_F(OwnProvidersTest, HasARevisionWithoutProviders) {
  begin({});
  expectChanges(1, 1, {});
  EXPECT_THAT(allLines(), IsEmpty());
}

TEST_F(OwnProvidersTest, TellsEachChangeOnceAsItIsNow) {
  begin({});
  expectChanges(1, 1, {});
  tell({registeredFact(), factOfSource(Kind::online, "web1")});
  tell({factOfSource(Kind::online, "web2"), factOfSource(Kind::offline, "web1")});
  expectChanges(1, 3, {loadLine, "G HOSTMON load web1", "S HOSTMON load web2"});
  expectChanges(3, 3, {});
  tell({unregisteredFact(), factOfSource(Kind::offline, "web2")});
  expectChanges(3, 4, {"U HOSTMON", "G HOSTMON load web2"});
  EXPECT_THAT(allLines(), IsEmpty());
}

TEST_F(OwnProvidersTest, WhatIsToldAgainIsNoChange) {
  begin({registeredFact(), factOfSource(Kind::online, "web1")});
  expectChanges(1, 1, {});
  tell({registeredFact(), factOfSource(Kind::online, "web1"), factOfSource(Kind::offline, "web9")});
  expectChanges(1, 1, {});
  const std::string other = std::string(loadText) + "group:disk;attr:name,T,32;";
  tell({registeredFact(other)});
  expectChanges(1, 2, {loadLine + std::string("group:disk;attr:name,T,32;")});
}

TEST_F(OwnProvidersTest, WhatIsNotToldAgainFromTheBeginningIsGone) {
  begin({registeredFact(), factOfSource(Kind::online, "web1"), factOfSource(Kind::online, "web2")});
  expectChanges(1, 1, {});
  begin({registeredFact()}, false);
  expectChanges(1, 1, {});
  begin({registeredFact()}, false);
  tell({factOfSource(Kind::online, "web2")}, true);
  expectChanges(1, 2, {"G HOSTMON load web1"});
  EXPECT_THAT(allLines(), ElementsAre(loadLine, "S HOSTMON load web2"));
}

TEST_F(OwnProvidersTest, OfTooManyChangesOnlyTheRevisionIsTold) {
  begin({});
  expectChanges(1, 1, {});
  std::vector<ProviderFact> facts;
  std::size_t bytes = 0;
  for (int i = 1000; bytes <= OwnProviders::mostChangesBytes; ++i) {
    facts.push_back(factOfSource(Kind::online, std::to_string(i)));
    bytes += std::string("S HOSTMON load 1000\n").size();
  }
  tell(facts);
  expectChanges(2, 2, {});
  facts.pop_back();
  for (ProviderFact& each : facts) each.kind = Kind::offline;
  tell(facts);
  const OwnProviders::Changes changes = _providers.changes();
  EXPECT_EQ(changes.from, 2u);
  EXPECT_EQ(changes.to, 3u);
  EXPECT_EQ(providerLinesOf(changes.text).size(), facts.size());
  EXPECT_LE(changes.text.size(), OwnProviders::mostChangesBytes);
}

TEST_F(OwnProvidersTest, OfALargeRegistrationOnlyTheRevisionIsTold) {
  begin({});
  expectChanges(1, 1, {});
  tell({registeredFact(
      "appl:HOSTMON,HMN;help:" + std::string(OwnProviders::mostChangesBytes / 3, '%') +
      ";group:load;attr:load1,D,16;")});
  expectChanges(2, 2, {});
}

TEST_F(OwnProvidersTest, AnswersSomeLinesAtATimeInTheOrderOfTheirKeys) {
  std::vector<ProviderFact> facts{registeredFact()};
  for (int i = 100'000; i < 110'000; ++i)
    facts.push_back(factOfSource(Kind::online, std::to_string(i)));
  begin(facts);
  const OwnProviders::Piece first = _providers.answer("");
  EXPECT_FALSE(first.isAll);
  EXPECT_LE(first.text.size(), OwnProviders::mostAnswerBytes);
  EXPECT_GT(first.text.size(), OwnProviders::mostAnswerBytes - 100);
  const std::vector<std::string> lines = allLines();
  ASSERT_EQ(lines.size(), facts.size());
  EXPECT_EQ(lines.front(), loadLine);
  EXPECT_EQ(lines[1], "S HOSTMON load 100000");
  EXPECT_EQ(lines.back(), "S HOSTMON load 109999");
  EXPECT_EQ(providerLinesOf(_providers.answer("A HOSTMON").text).front(), lines[1]);
  EXPECT_TRUE(_providers.answer(lines.back()).isAll);
  EXPECT_EQ(_providers.answer("Z").text, "");
  EXPECT_TRUE(_providers.answer("Z").isAll);
}

TEST_F(OwnProvidersTest, AnswersWithTheRevisionFromWhichTheNextChangesLead) {
  EXPECT_EQ(_providers.answer("").revision, 0u);
  begin({});
  EXPECT_EQ(_providers.answer("").revision, 0u) << "it was not told yet";
  expectChanges(1, 1, {});
  tell({factOfSource(Kind::online, "web1")});
  EXPECT_EQ(_providers.answer("").revision, 1u);
  EXPECT_EQ(_providers.answer("").text, "S HOSTMON load web1\n");
  expectChanges(1, 2, {"S HOSTMON load web1"});
  EXPECT_EQ(_providers.answer("").revision, 2u);
}

TEST_F(OwnProvidersTest, ALineThatIsLongerThanAnAnswerIsOneAlone) {
  begin({registeredFact(
             "appl:HOSTMON,HMN;help:" + std::string(OwnProviders::mostAnswerBytes / 3, '%') +
             ";group:load;attr:load1,D,16;"),
         registeredFact("appl:ALARM,ALM;group:load;attr:load1,D,16;"),
         factOfSource(Kind::online, "web1")});
  EXPECT_EQ(providerLinesOf(_providers.answer("").text).size(), 1u);
  const OwnProviders::Piece large = _providers.answer("A ALARM");
  EXPECT_GT(large.text.size(), OwnProviders::mostAnswerBytes);
  EXPECT_EQ(providerLinesOf(large.text).size(), 1u);
  EXPECT_FALSE(large.isAll);
  EXPECT_EQ(_providers.answer("A HOSTMON").text, "S HOSTMON load web1\n");
}

// Who takes all once, and then the changes alone, has what it answers.
TEST_F(OwnProvidersTest, ChangesLeadFromOneAnswerToTheNext) {
  begin({});
  expectChanges(1, 1, {});
  std::mt19937 random(7);
  std::set<std::string> copy;
  for (int round = 0; round < 500; ++round) {
    const std::string source = std::to_string(random() % 20);
    const bool isOnline = random() % 2 == 0;
    if (random() % 50 == 0)
      begin({factOfSource(Kind::online, source)});
    else
      tell({factOfSource(isOnline ? Kind::online : Kind::offline, source)});
    if (random() % 3 != 0) continue;
    for (const std::string& line : providerLinesOf(_providers.changes().text)) {
      if (line.front() == 'S')
        copy.insert(line);
      else
        copy.erase('S' + line.substr(1));
    }
    const std::vector<std::string> all = allLines();
    ASSERT_EQ(copy, std::set<std::string>(all.begin(), all.end())) << "round " << round;
  }
}

}  // namespace
}  // namespace dch
