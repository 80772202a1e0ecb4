#include "dch/link/row_fetch.h"

#include <gtest/gtest.h>

#include <limits>

namespace dch {
namespace {

constexpr char first[] = "000102030405060708090a0b0c0d0e0f";
constexpr char second[] = "ffffffffffffffffffffffffffffffff";

RowName nameOf(const char* epoch, std::int64_t number) {
  return {*parseEpoch(epoch), number};
}

TEST(RowFetchTest, TheSiteIsAToken) {
  EXPECT_EQ(fetchSubject("west"), "zord.fetch.west");
  EXPECT_EQ(fetchSubject("a.b *"), "zord.fetch.a%2Eb%20%2A");
}

TEST(RowFetchTest, ARequestHasALineForEachEpoch) {
  const std::vector<RowName> names{nameOf(second, 12), nameOf(first, 0)};
  const std::string text = std::string(second) + " 12\n" + first + " 0\n";
  EXPECT_EQ(fetchRequestText(names), text);
  EXPECT_EQ(parseFetchRequest(text), names);
}

TEST(RowFetchTest, WhoHasNothingSendsNothing) {
  EXPECT_EQ(fetchRequestText({}), "");
  EXPECT_EQ(parseFetchRequest(""), std::vector<RowName>{});
}

TEST(RowFetchTest, NothingElseIsARequest) {
  const std::string epoch = first;
  for (const std::string& text :
       {std::string("\n"), epoch, epoch + " 1", epoch + "\n", epoch + " \n", epoch + " 01\n",
        epoch + " +1\n", epoch + " 1 \n", epoch + "  1\n", epoch + " 1\r\n", epoch + " 1\n\n",
        epoch + " 9223372036854775808\n", std::string("1 ") + epoch + "\n",
        epoch.substr(1) + " 1\n", epoch + " 1\n" + std::string(1, '\0')})
    EXPECT_FALSE(parseFetchRequest(text)) << text;
}

TEST(RowFetchTest, ARequestNamesSoManyEpochsAtMost) {
  std::vector<RowName> names(mostFetchNames, nameOf(first, 1));
  EXPECT_EQ(parseFetchRequest(fetchRequestText(names)), names);
  names.push_back(nameOf(second, 1));
  EXPECT_FALSE(parseFetchRequest(fetchRequestText(names)));
}

TEST(RowFetchTest, TheEndTellsHowFarAndHowManyAndWhetherThatIsAll) {
  const FetchEnd all{nameOf(first, 17), 3, true, nameOf(second, 1).epoch};
  EXPECT_EQ(fetchEndText(all), std::string("1 ") + first + " 17 3 all " + second);
  EXPECT_EQ(parseFetchEnd(fetchEndText(all)), all);
  const FetchEnd more{nameOf(first, std::numeric_limits<std::int64_t>::max()), 1'024, false,
                      all.run};
  EXPECT_EQ(fetchEndText(more),
            std::string("1 ") + first + " 9223372036854775807 1024 more " + second);
  EXPECT_EQ(parseFetchEnd(fetchEndText(more)), more);
}

TEST(RowFetchTest, NothingElseIsAnEnd) {
  const std::string good = std::string("1 ") + first + " 17 3 all " + second;
  for (const std::string& text :
       {std::string(), good + " ", good.substr(1), "2" + good.substr(1), good.substr(0, 40),
        std::string("1 ") + first + " 17 3 all", std::string("1 ") + first + " 17 3 all ",
        std::string("1 ") + first + " 17 3 none " + second,
        std::string("1 ") + first + " 17 -3 all " + second,
        std::string("1 ") + first + " 17 all " + second,
        std::string("1 ") + first + " 017 3 all " + second})
    EXPECT_FALSE(parseFetchEnd(text)) << text;
}

}  // namespace
}  // namespace dch
