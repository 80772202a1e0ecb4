// How often sites are asked, whatever they say.
#include <algorithm>
#include <set>
#include <string>
#include <vector>

#include "dch/link/site_copies_fixture.h"

namespace dch {
namespace {

constexpr char newSourceLine[] = "S A g new\n";

std::string siteNumber(int number) {
  return "site" + std::to_string(number);
}

TEST_F(SiteCopiesTest, EightSitesAreAskedAtATime) {
  for (int each = 0; each < 20; ++each) hear(siteNumber(each), 5, 5);
  std::set<std::string> asked;
  for (std::string question = next(); question != "none"; question = next()) asked.insert(question);
  EXPECT_EQ(asked.size(), 8u);
  answer(5, "");
  EXPECT_TRUE(asked.insert(next()).second) << "another site";
  EXPECT_EQ(next(), "none");
}

TEST_F(SiteCopiesTest, SitesTakeTurns) {
  for (int each = 0; each < 10; ++each) hear(siteNumber(each), 5, 5);
  std::set<std::string> asked;
  for (int each = 0; each < 10; ++each) {
    asked.insert(next());
    answer(5, "S A g a\n", false);
  }
  EXPECT_EQ(asked.size(), 10u) << "none is asked for its second piece before";
}

TEST_F(SiteCopiesTest, ASiteThatDoesNotAnswerIsAskedLessAndLessOften) {
  hear("west", 5, 5);
  EXPECT_EQ(next(), "west ");
  std::vector<int> waits;
  for (int each = 0; each < 8; ++each) waits.push_back(secondsToNext());
  EXPECT_EQ(waits, (std::vector<int>{4, 6, 10, 18, 34, 62, 62, 62}));
}

TEST_F(SiteCopiesTest, SoIsOneOfWhichItIsKnownAtOnce) {
  hear("west", 5, 5);
  EXPECT_EQ(next(), "west ");
  std::vector<int> waits;
  for (int each = 0; each < 8; ++each) {
    _copies.unanswered(_asked, _now);
    waits.push_back(secondsToNext());
  }
  EXPECT_EQ(waits, (std::vector<int>{2, 4, 8, 16, 32, 60, 60, 60}));
}

TEST_F(SiteCopiesTest, SitesThatDoNotAnswerLeaveRoomForOthers) {
  const auto askAll = [this] {
    std::set<std::string> asked;
    for (std::string question = next(); question != "none"; question = next())
      asked.insert(question);
    return asked;
  };
  for (int each = 0; each < 100; ++each) hear(siteNumber(each), 5, 5);
  for (int second = 0; second < 200; ++second, pass(1)) askAll();
  for (int each = 0; each < 8; ++each) hear("new" + std::to_string(each), 5, 5);
  const std::set<std::string> asked = askAll();
  EXPECT_GE(std::count_if(asked.begin(), asked.end(),
                          [](const std::string& each) { return each.starts_with("new"); }),
            4);
  pass(3);
  askAll();  // the other new ones, too
  pass(3);
  EXPECT_EQ(askAll().size(), SiteCopies::mostUnderWay / 2) << "none of these has answered";
}

TEST_F(SiteCopiesTest, OneThatAnswersAfterAllGoesOnAtOnce) {
  hear("west", 5, 5);
  next();
  _copies.unanswered(_asked, _now);
  secondsToNext();
  answer(5, "S A g a\n", false);
  EXPECT_EQ(next(), "west S A g a");
  pass(2);
  EXPECT_EQ(secondsToNext(), 4);
  answer(5, "S A g b\n");
  EXPECT_EQ(_sink.take(), "west first S A g a;west more S A g b end;");
}

TEST_F(SiteCopiesTest, AnAnswerThatComesTooLateIsIgnored) {
  hear("west", 5, 5);
  next();
  const std::uint64_t late = _asked;
  secondsToNext();
  answer(late, 5, "S A g a\n");
  EXPECT_EQ(_sink.take(), "");
  answer(5, "S A g b\n");
  EXPECT_EQ(_sink.take(), "west first S A g b end;");
  answer(5, "S A g c\n");
  EXPECT_EQ(_sink.take(), "") << "the second answer to one question";
}

TEST_F(SiteCopiesTest, CopiesThatBeginAgainAndAgainAreFewer) {
  copy("west", 5);
  std::vector<int> waits;
  for (std::uint64_t revision = 10; revision < 80; revision += 10) {
    hear("west", revision, revision);
    waits.push_back(secondsToNext());
    answer(revision, "");
  }
  EXPECT_EQ(waits, (std::vector<int>{2, 4, 8, 16, 32, 60, 60}));
  pass(61);
  hear("west", 90, 90);
  EXPECT_EQ(secondsToNext(), 0) << "after a minute of quiet";
}

TEST_F(SiteCopiesTest, TwoRunsInTurnsAreAskedFewTimes) {
  int questions = 0;
  constexpr int seconds = 3'600;
  for (int second = 0; second < seconds; ++second) {
    const char run = second % 2 == 0 ? 'a' : 'b';
    hear("west", 5, 5, {}, run);
    while (next() != "none") {
      ++questions;
      answer(5, "S A g a\n", true, run);
    }
    pass(1);
  }
  EXPECT_LE(questions, seconds / 60 + 6);
  EXPECT_GE(questions, seconds / 60 - 6);
}

TEST_F(SiteCopiesTest, WhoSaysWhatCannotBeReadIsLeftAlone) {
  hear("west", 5, 5);
  next();
  answer(5, "nonsense\n");
  EXPECT_EQ(_copies.refused(), 1u);
  EXPECT_EQ(_sink.take(), "");
  hear("west", 6, 6, {}, 'b');
  hear("west", 6, 7, "nonsense\n", 'b');
  EXPECT_EQ(secondsToNext(), 60);
  answer(7, "", true, 'b');
  hear("west", 7, 8, "nonsense\n", 'b');
  EXPECT_EQ(_copies.refused(), 2u);
  EXPECT_EQ(secondsToNext(), 60);
}

TEST_F(SiteCopiesTest, APieceThatDoesNotLeadOnCannotBeRead) {
  for (const char* text : {"", "S A g a\n", "S A g b\n", "S A g d\nS A g c\n", "G A g c\n"}) {
    _copies.silent("west", _now);
    pass(1'000);
    hear("west", 5, 5);
    ASSERT_EQ(next(), "west ");
    answer(5, "S A g b\n", false);
    ASSERT_EQ(next(), "west S A g b");
    const std::uint64_t before = _copies.refused();
    answer(5, text, false);
    EXPECT_EQ(_copies.refused(), before + 1) << text;
    EXPECT_EQ(next(), "none");
  }
}

TEST_F(SiteCopiesTest, ACopyWithoutAnEndEnds) {
  hear("west", 5, 5);
  std::size_t facts = 0;
  while (next() != "none") {
    std::string text;
    for (int each = 0; each < 4'000; ++each)
      text += "S A g " + std::to_string(1'000'000'000 + facts++) + '\n';
    answer(5, text, false);
    _sink.take();
  }
  EXPECT_LE(facts, SiteCopies::mostFactsOfCopy + 4'000);
  EXPECT_EQ(_copies.refused(), 1u);
}

TEST_F(SiteCopiesTest, ATextThatIsTooLongCannotBeRead) {
  std::string text;
  for (int each = 0; text.size() <= SiteCopies::mostBytesOfText; ++each)
    text += "S A g " + std::to_string(1'000'000 + each) + '\n';
  hear("west", 5, 5);
  next();
  answer(5, text);
  EXPECT_EQ(_copies.refused(), 1u);
}

// ---- Lies --------------------------------------------------------------------------------------

TEST_F(SiteCopiesTest, ARevisionThatTheSiteDoesNotHaveIsForgotten) {
  copy("west", 5);
  hear("west", 5, ~std::uint64_t{0}, newSourceLine);
  _sink.take();
  for (int second = 0; second < 12; ++second) {
    pass(1);
    hear("west", 6, 6);
  }
  EXPECT_EQ(next(), "west ");
  answer(6, "S A g s\n");
  EXPECT_EQ(_sink.take(), "west first S A g s end;");
  hear("west", 6, 7, newSourceLine);
  EXPECT_EQ(_sink.take(), "west more S A g new;");
}

TEST_F(SiteCopiesTest, AWordThatIsLateLeadsToNoCopy) {
  copy("west", 5);
  for (int second = 0; second < 100; ++second) {
    pass(1);
    hear("west", 5, 5);
    hear("west", 4, 4);
  }
  EXPECT_EQ(next(), "none");
}

TEST_F(SiteCopiesTest, AFalseRevisionBeforeACopyIsForgottenWithTheAnswer) {
  hear("west", ~std::uint64_t{0}, ~std::uint64_t{0});
  next();
  answer(6, "S A g s\n");
  EXPECT_EQ(_sink.take(), "west first S A g s end;");
  hear("west", 6, 7, newSourceLine);
  EXPECT_EQ(_sink.take(), "west more S A g new;");
}

TEST_F(SiteCopiesTest, AFalseRevisionDuringACopyLeadsToAnotherOne) {
  hear("west", 5, 5);
  next();
  answer(5, "S A g a\n", false);
  hear("west", 5, ~std::uint64_t{0}, newSourceLine);
  next();
  answer(5, "S A g b\n");
  EXPECT_EQ(secondsToNext(), 2);
  _sink.take();
  answer(5, "S A g s\n");
  EXPECT_EQ(_sink.take(), "west first S A g s end;");
}

TEST_F(SiteCopiesTest, WordsThatOvertakeEachAnswerLeadToFewQuestions) {
  hear("west", 5, 5);
  int questions = 0;
  std::uint64_t revision = 5;
  for (int step = 0; step < 10'000; ++step, pass(0.001))
    while (next() != "none") {
      ++questions;
      hear("west", revision, revision + 1, newSourceLine);
      answer(revision++, "S A g s\n");
    }
  EXPECT_LE(questions, 110) << "in ten seconds";
  EXPECT_GE(questions, 90);
}

TEST_F(SiteCopiesTest, FewQuestionsAreAskedInASecond) {
  hear("west", 5, 5);
  unsigned questions = 0;
  for (; next() != "none"; ++questions)
    answer(5, "S A g " + std::to_string(100'000 + questions) + '\n', false);
  EXPECT_EQ(questions, SiteCopies::mostQuestionsOfSecond);
  pass(1);
  EXPECT_NE(next(), "none");
}

TEST_F(SiteCopiesTest, KnowsManySitesAndForgetsSilentOnes) {
  constexpr int most = SiteCopies::mostSites;
  for (int each = 0; each < most; ++each) hear(siteNumber(each), 5, 5);
  EXPECT_EQ(next(), "site0 ");
  answer(5, "S A g a\n");
  _sink.take();
  hear("late", 5, 5);
  EXPECT_EQ(_sink.take(), "");
  _copies.silent(siteNumber(0), _now);
  EXPECT_EQ(_sink.take(), "site0 silent;");
  pass(2);
  hear("late", 5, 5);
  EXPECT_EQ(_sink.take(), "site0 first end;") << "it has nothing any more";
  hear(siteNumber(0), 5, 5);
  pass(2);
  std::set<std::string> asked;
  for (std::string question; (question = next()) != "none"; pass(0.01)) {
    asked.insert(question);
    answer(5, "");
  }
  EXPECT_EQ(asked.size(), SiteCopies::mostSites);
  EXPECT_TRUE(asked.contains("late "));
  EXPECT_FALSE(asked.contains("site0 "));
}

}  // namespace
}  // namespace dch
