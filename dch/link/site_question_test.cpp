#include "dch/link/site_question.h"

#include <gtest/gtest.h>

#include "dch/testkit/link_test.h"
#include "dch/testkit/nats_server.h"
#include "dch/testkit/row_names.h"
#include "tests/support/wait_until.h"

namespace dch::testkit {
namespace {

// What cannot be sent was never asked.
TEST(SiteQuestionTest, ASiteIsFreeAgainWhenTheConnectionIsLost) {
  NatsServer nats;
  std::unique_ptr<ServerConnection> connection;
  ASSERT_TRUE(waitUntil(
      [&] {
        try {
          connection = std::make_unique<ServerConnection>(LinkSettings{.site = "hub"}, nats.url());
        } catch (const LinkError&) {  // the machine stood still
        }
        return connection != nullptr;
      },
      linkPatience));
  CollectedSite site("west");
  ASSERT_FALSE(site.rows.fromStream(1, {name(3), name(2), 0, 1, "host1"}));
  auto box = std::make_unique<AnswerBox>(*connection);
  nats.kill();
  const auto fails = [&] {
    try {
      SiteQuestion question(*connection, site, std::move(box));
      EXPECT_TRUE(site.isBusy);
      box = question.takeBox();
      return false;
    } catch (const LinkError&) {
      return true;
    }
  };
  ASSERT_TRUE(waitUntil(fails, linkPatience));
  EXPECT_FALSE(site.isBusy);
  EXPECT_NE(site.rows.wants(), IncomingRows::Wants::nothing);
}

}  // namespace
}  // namespace dch::testkit
