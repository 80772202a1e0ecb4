#include "dch/link/collected_site.h"

#include <gmock/gmock.h>

#include "dch/testkit/row_names.h"

namespace dch::testkit {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

RowHeader header(std::int64_t number, int run = 1) {
  return {name(number, run), name(number - 1, run), 1'000 + number, 7, "host1"};
}

const RowSubject load{"west", "HOSTMON", "load"};

// A row that comes from the stream, and fits.
void collect(CollectedSite& site, std::int64_t number, int run = 1) {
  ASSERT_TRUE(site.rows.fromStream(static_cast<std::uint64_t>(number), header(number, run)));
  site.keep(header(number, run), load, "row " + std::to_string(number));
}

TEST(CollectedSiteTest, HasNothingToBeKeptAtFirst) {
  CollectedSite site("west", {{name(5), name(7, 2)}, 12});
  EXPECT_FALSE(site.takeUnkept().has_value());
}

TEST(CollectedSiteTest, HasCollectedUpToItsLastRowOrWhatWasTold) {
  CollectedSite site("west", {{name(5), name(7, 2)}, 12});
  EXPECT_EQ(site.collectedUpTo(name(1).epoch), 5);
  EXPECT_EQ(site.collectedUpTo(name(1, 2).epoch), 7);
  EXPECT_EQ(site.collectedUpTo(name(1, 3).epoch), std::nullopt);
  site.told = {name(1).epoch, 9};
  EXPECT_EQ(site.collectedUpTo(name(1).epoch), 9) << "those behind its last row are no rows";
  EXPECT_EQ(site.collectedUpTo(name(1, 2).epoch), 7);
  site.told = {name(1, 3).epoch, 20};
  EXPECT_EQ(site.collectedUpTo(name(1).epoch), 5);
  EXPECT_EQ(site.collectedUpTo(name(1, 3).epoch), 20) << "a run that has kept no row";
}

TEST(CollectedSiteTest, GivesRowsInTheirOrderWithAllThatIsSaidOfThem) {
  CollectedSite site("west");
  collect(site, 1);
  collect(site, 2);
  const RemoteRows taken = site.takeUnkept().value();
  EXPECT_EQ(taken.site, "west");
  ASSERT_EQ(taken.rows.size(), 2u);
  EXPECT_EQ(taken.rows[0].name, name(1));
  EXPECT_EQ(taken.rows[1].name, name(2));
  EXPECT_EQ(taken.rows[1].time, 1'002);
  EXPECT_EQ(taken.rows[1].application, "HOSTMON");
  EXPECT_EQ(taken.rows[1].group, "load");
  EXPECT_EQ(taken.rows[1].source, "host1");
  EXPECT_EQ(taken.rows[1].message, "row 2");
  EXPECT_THAT(taken.known, ElementsAre(name(2)));
  EXPECT_EQ(taken.passedFrom, std::nullopt);
}

TEST(CollectedSiteTest, GivesEachRowOnce) {
  CollectedSite site("west");
  collect(site, 1);
  ASSERT_TRUE(site.takeUnkept().has_value());
  EXPECT_FALSE(site.takeUnkept().has_value());
  collect(site, 2);
  EXPECT_EQ(site.takeUnkept().value().rows.size(), 1u);
}

TEST(CollectedSiteTest, NamesOnlyTheRunsThatWentOnTheLatestFirst) {
  CollectedSite site("west", {{name(5, 1), name(5, 2), name(5, 3), name(5, 4)}, std::nullopt});
  collect(site, 6, 3);
  collect(site, 1, 9);
  collect(site, 6, 1);
  EXPECT_THAT(site.takeUnkept().value().known, ElementsAre(name(6, 1), name(1, 9), name(6, 3)));
  collect(site, 6, 4);
  EXPECT_THAT(site.takeUnkept().value().known, ElementsAre(name(6, 4)));
}

// Such as when the site tells where the next request begins.
TEST(CollectedSiteTest, ARunThatHasOnlyComeToTheFrontIsNotNamed) {
  CollectedSite site("west", {{name(5, 1), name(5, 2)}, std::nullopt});
  site.rows.beginFetch();
  ASSERT_FALSE(site.rows.fetched(header(5, 2)));
  ASSERT_THAT(site.rows.state().have, ElementsAre(name(5, 2), name(5, 1)));
  EXPECT_FALSE(site.takeUnkept().has_value());
  collect(site, 6, 1);
  EXPECT_THAT(site.takeUnkept().value().known, ElementsAre(name(6, 1)));
}

TEST(CollectedSiteTest, SaysFromWhereOnRowsWerePassedOverWithoutRows) {
  CollectedSite site("west");
  ASSERT_FALSE(site.rows.fromStream(40, header(3)));
  const RemoteRows taken = site.takeUnkept().value();
  EXPECT_THAT(taken.rows, IsEmpty());
  EXPECT_THAT(taken.known, IsEmpty());
  EXPECT_EQ(taken.passedFrom, 40u);
  EXPECT_FALSE(site.takeUnkept().has_value());
}

TEST(CollectedSiteTest, SaysThatNothingIsPassedOverAnyMore) {
  CollectedSite site("west", {{name(2)}, 40});
  site.rows.beginFetch();
  ASSERT_TRUE(site.rows.fetchEnded({name(2), 0, true}, true));
  ASSERT_EQ(site.rows.beginReread(), 40u);
  site.rows.rereadEnded();
  const RemoteRows taken = site.takeUnkept().value();
  EXPECT_EQ(taken.passedFrom, std::nullopt);
  EXPECT_THAT(taken.rows, IsEmpty());
}

// A server takes no others from its providers.
TEST(CollectedSiteTest, NamesMayBeAsLongAsServersTakeThem) {
  const RowSubject longest{std::string(64, 's'), std::string(20, 'a'), std::string(32, 'g')};
  RowHeader named;
  named.source = std::string(32, 'h');
  EXPECT_TRUE(mayBeKept(named, longest));
  for (std::string RowSubject::*const name :
       {&RowSubject::site, &RowSubject::application, &RowSubject::group}) {
    RowSubject longer = longest;
    (longer.*name) += 'x';
    EXPECT_FALSE(mayBeKept(named, longer));
  }
  named.source += 'x';
  EXPECT_FALSE(mayBeKept(named, longest));
}

// What stays as it is has to be said again: an entry without it says that there is none.
TEST(CollectedSiteTest, RowsComeWithTheSamePlaceAsBefore) {
  CollectedSite site("west", {{name(2)}, 40});
  collect(site, 3);
  EXPECT_EQ(site.takeUnkept().value().passedFrom, 40u);
}

}  // namespace
}  // namespace dch::testkit
