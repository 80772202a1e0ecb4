// How long the real program keeps rows when its configuration file is read again.
#include <gtest/gtest.h>
#include <signal.h>

#include <optional>
#include <string>

#include "dch/clock.h"
#include "dch/testkit/server_process.h"
#include "dch/testkit/store_test.h"
#include "tests/support/temporary_files.h"
#include "tests/support/wait_until.h"

namespace dch::testkit {
namespace {

class ZordchdRetentionTest : public StoreTest {
 protected:
  void SetUp() override {
    start();
    goOnline();
  }

  int rows() const { return std::stoi(read("SELECT count(*) FROM \"HOSTMON.load\"")); }

  // A server serves what is kept, and reads its file again with these limits.
  void serveAndKeepLess(const std::string& limits) {
    stop();
    const int kept = rows();
    const TemporaryFile configuration("[store]\nkeep_days = 30\nkeep_megabytes = 1000\n");
    _server.emplace(ServerProcess::Arguments{"--config", configuration.path(), "--store", path()});
    EXPECT_EQ(rows(), kept);
    configuration.write("[store]\n" + limits);
    kill(_server->processId(), SIGHUP);
    EXPECT_TRUE(_server->waitForError("has read " + configuration.path() + " again\n"));
  }
  std::optional<ServerProcess> _server;
};

TEST_F(ZordchdRetentionTest, FewerDaysAreInForceSoon) {
  keepRows(1, 4, dch::now() - 9 * day);
  keepRows(1, 6, dch::now() - 1 * day);
  serveAndKeepLess("keep_days = 2\nkeep_megabytes = 1000\n");
  EXPECT_TRUE(waitUntil([&] { return rows() == 6; })) << rows();
  EXPECT_EQ(_server->stop(SIGTERM), 0);
}

TEST_F(ZordchdRetentionTest, FewerMegabytesAreInForceSoon) {
  keepRows(1, 4'000, dch::now() - 1 * day, 1'000);
  serveAndKeepLess("keep_days = 30\nkeep_megabytes = 3\n");
  // Three have room in a page of 4,096 bytes.
  EXPECT_TRUE(waitUntil([&] { return rows() * 4'096 / 3 <= 3 * 1'048'576; })) << rows();
  EXPECT_EQ(_server->stop(SIGTERM), 0);
}

}  // namespace
}  // namespace dch::testkit
