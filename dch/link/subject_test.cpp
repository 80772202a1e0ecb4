#include "dch/link/subject.h"

#include <gtest/gtest.h>

#include <set>

#include "dch/core/registry.h"

namespace dch {
namespace {

TEST(SubjectToken, KeepsLettersDigitsHyphensAndUnderscores) {
  const std::string plain = "abcxyzABCXYZ0189-_";
  EXPECT_EQ(plain, subjectToken(plain));
  EXPECT_EQ(plain, nameOfToken(plain));
}

TEST(SubjectToken, EscapesEveryOtherByte) {
  EXPECT_EQ("web%2E1%20%2A%3E%25", subjectToken("web.1 *>%"));
  EXPECT_EQ("%00%0A%0D%7F%80%FF", subjectToken({"\0\n\r\x7f\x80\xff", 6}));
  EXPECT_EQ("%40%5B%60%7B%2F%3A", subjectToken("@[`{/:"));
  EXPECT_EQ("%252E", subjectToken("%2E"));
  EXPECT_EQ("K%C3%B6ln", subjectToken("K\xc3\xb6ln"));
}

TEST(SubjectToken, OfAnEmptyNameIsNotEmpty) {
  EXPECT_EQ("%", subjectToken(""));
  EXPECT_EQ("", nameOfToken("%"));
}

TEST(SubjectToken, OfEachByteIsAnotherAndLeadsBack) {
  std::set<std::string> tokens;
  for (int value = 0; value < 256; ++value) {
    const std::string name(1, static_cast<char>(value));
    const std::string token = subjectToken(name);
    EXPECT_EQ(std::string::npos, token.find_first_of(std::string(". *>\t\r\n\0", 8))) << value;
    EXPECT_EQ(name, nameOfToken(token)) << value;
    tokens.insert(token);
  }
  EXPECT_EQ(256U, tokens.size());
}

TEST(SubjectToken, HasNoNameWhenItWouldBeWrittenOtherwise) {
  for (const char* each : {"", "%%", "%4", "a%", "%2e", "%41", "%2D", "%5F", "%GG", "%-1", "%+1",
                           "% 1", "%0x", "a.b", "a b", "\xff"})
    EXPECT_EQ(std::nullopt, nameOfToken(each)) << each;
  EXPECT_EQ(std::nullopt, nameOfToken({"a\0", 2}));
}

TEST(RowSubject, NamesSiteApplicationAndGroup) {
  EXPECT_EQ("zord.rows.site-1.HOSTMON.load", rowSubject("site-1", "HOSTMON", "load"));
  EXPECT_EQ("zord.rows.a%2Eexample.%.%3E", rowSubject("a.example", "", ">"));
}

TEST(RowSubject, LeadsBackToTheNames) {
  for (const RowSubject& each :
       {RowSubject{"site-1", "HOSTMON", "load"}, RowSubject{"a.b", "c.d.e", "."},
        RowSubject{"", "", ""}, RowSubject{"%", "*", ">"}, RowSubject{"K\xc3\xb6ln", " ", "\n"}})
    EXPECT_EQ(each, parseRowSubject(rowSubject(each.site, each.application, each.group)));
}

TEST(RowSubject, NothingElseIsOne) {
  for (const char* each : {"",
                           "zord.rows",
                           "zord.rows.",
                           "zord.rows.a",
                           "zord.rows.a.b",
                           "zord.rows.a.b.",
                           "zord.rows..b.c",
                           "zord.rows.a..c",
                           "zord.rows.a.b.c.",
                           "zord.rows.a.b.c.d",
                           "zord.rows...",
                           ".zord.rows.a.b.c",
                           "zord.rowsa.b.c",
                           "zord.rows a.b.c",
                           "zord.fetch.a.b.c",
                           "Zord.rows.a.b.c",
                           "zord.rows.a.b.%2e",
                           "zord.rows.a.%41.c",
                           "zord.rows.%%.b.c",
                           "zord.rows.a.*.c",
                           "zord.rows.a.b.>",
                           "zord.rows.a.b.c\n"})
    EXPECT_EQ(std::nullopt, parseRowSubject(each)) << each;
}

TEST(LiveSubject, SaysWhoseRowsTheyAre) {
  const std::string text = "zord.live.west%2E1.HOSTMON.load%20-_";
  EXPECT_EQ(text, liveSubject("west.1", "HOSTMON", "load -_"));
  EXPECT_EQ((RowSubject{"west.1", "HOSTMON", "load -_"}), parseLiveSubject(text));
  EXPECT_EQ(std::nullopt, parseRowSubject(text));
  EXPECT_EQ(std::nullopt, parseLiveSubject(rowSubject("west.1", "HOSTMON", "load")));
}

TEST(LiveSubject, TakesNoNamesThatNobodyCanHave) {
  const std::string site(64, 's'), application(20, 'A'), group(32, 'g');
  EXPECT_TRUE(parseLiveSubject(liveSubject(site, application, group)));
  for (const std::string& text :
       {liveSubject(site + "s", "A", "g"), liveSubject("s", application + "A", "g"),
        liveSubject("s", "A", group + "g"), liveSubject("", "A", "g"), liveSubject("s", "", "g"),
        liveSubject("s", "A", ""), std::string("zord.live.s.A"), std::string("zord.live.s.A.g.h"),
        std::string("zord.lives.A.g"), std::string("zord.live"), std::string()})
    EXPECT_EQ(std::nullopt, parseLiveSubject(text)) << text;
}

TEST(LiveSubject, OfATopicIsThatOfAllSites) {
  EXPECT_EQ("zord.live.*.HOST%2EMON.load%20", liveSubjectsOf(topicOf("HOST.MON", "load ")));
  for (const std::string& topic :
       {std::string("provider status"), std::string(), topicOf("", "g"), topicOf("A", ""),
        topicOf(std::string(21, 'A'), "g"), topicOf("A", std::string(33, 'g'))})
    EXPECT_EQ(std::nullopt, liveSubjectsOf(topic)) << topic;
}

}  // namespace
}  // namespace dch
