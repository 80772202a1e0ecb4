// The power is lost while many send: what the real program acknowledged with durability "power" is
// on the disk. ZORD410_POWER_LOSSES sets how often, ZORD410_SEED when.
#include <signal.h>

#include <filesystem>
#include <fstream>
#include <iostream>
#include <optional>

#include "dch/testkit/disk_image.h"
#include "dch/testkit/dying_server_test.h"
#include "dch/testkit/messages.h"
#include "dch/testkit/store_test.h"
#include "tests/support/temporary_files.h"
#include "tests/support/variables.h"
#include "zordchcl/status.h"

namespace dch::testkit {
namespace {

class ZordchdPowerTest : public DyingServerTest {
 protected:
  void SetUp() override {
    if (const auto reason = keepMountsToOneself()) GTEST_SKIP() << *reason;
    try {
      DiskImage::make(imagePath(0));
      _disk.emplace(imagePath(0));
    } catch (const std::runtime_error& error) {
      GTEST_SKIP() << "no file system can be mounted from a file: " << error.what();
    }
  }

  // The server, with what it keeps on the disk.
  void beginWith(const std::string& durability) {
    const std::string configuration = _folder.path() + "/zordchd.toml";
    std::ofstream(configuration) << "[store]\ndurability = \"" << durability << "\"\n";
    begin(path(), {"--config", configuration});
  }

  // It dies, and of the disk remains what was written to it.
  void losePower() {
    die();
    const std::string next = imagePath(++_losses);
    _disk->copyTo(next);
    _disk.reset();
    std::filesystem::remove(imagePath(_losses - 1));
    _disk.emplace(next);
  }

  std::string imagePath(unsigned number) const {
    return _folder.path() + "/disk" + std::to_string(number);
  }
  std::string path() const { return _disk->folder() + "/state.db"; }

  const TemporaryFolder _folder;
  std::optional<DiskImage> _disk;  // unmounted before its folder is removed
  unsigned _losses = 0;
};

TEST_F(ZordchdPowerTest, LosesNothingThatItAcknowledged) {
  const unsigned losses = numberFrom("ZORD410_POWER_LOSSES", 2);
  beginWith("power");
  startSenders();
  for (unsigned loss = 1; loss <= losses; ++loss) {
    std::this_thread::sleep_for(std::chrono::milliseconds(_random() % 500));
    losePower();
    compareWithFile(path());
    beginWith("power");
  }
  EXPECT_TRUE(allSend());
  const std::uint64_t rows = stopSenders();
  losePower();
  const KeptRows found = compareWithFile(path());
  EXPECT_EQ(found.acknowledged, rows);
  EXPECT_EQ(query(path(), "PRAGMA integrity_check"), "ok\n");
  beginWith("power");
  compareWithServer();
  std::cout << _losses << " losses of power: " << summaryOf(rows, found);
}

// What "process" leaves out, and so that the test above can fail: the newest rows are gone, when
// the system has not happened to write them, and what is left is whole.
TEST_F(ZordchdPowerTest, DurabilityOfTheProcessAloneLosesTheNewestRows) {
  constexpr int mostTries = 5;
  constexpr int rowsOfATry = 100;
  int left = 0;
  int acknowledged = 0;
  for (int i = 0; i < mostTries && left == acknowledged; ++i) {
    beginWith("process");
    const UdpClient client(_server->port());
    client.ask(registerMessage());
    const auto online = onlineAnswerOf(client.ask(onlineMessage("HOSTMON", "load", "host1")));
    ASSERT_TRUE(online);
    // A server that stops leaves everything on the disk.
    ASSERT_EQ(_server->stop(SIGTERM), 0);
    beginWith("process");
    for (int row = 0; row < rowsOfATry; ++row) {
      const std::string number = std::to_string(++acknowledged);
      ASSERT_EQ(statusOf(client.ask(dataMessage(online->handle, {{"load1", 'D', number}}))),
                DCH_STATUS_OK);
    }
    losePower();
    left = std::stoi(query(path(), "SELECT count(*) FROM \"HOSTMON.load\""));
  }
  EXPECT_LT(left, acknowledged);
  EXPECT_EQ(query(path(), "SELECT max(CAST(load1 AS INTEGER)) FROM \"HOSTMON.load\""),
            left > 0 ? std::to_string(left) + "\n" : "null\n");
  EXPECT_EQ(query(path(), "PRAGMA integrity_check"), "ok\n");
  std::cout << acknowledged << " rows acknowledged, " << left << " found\n";
}

}  // namespace
}  // namespace dch::testkit
