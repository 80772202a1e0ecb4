// The real program is killed again and again while many send: all that it acknowledged is there.
// ZORD410_SERVER_DEATHS sets how often it dies, ZORD410_SEED when.
#include <signal.h>

#include <iostream>

#include "dch/testkit/dying_server_test.h"
#include "dch/testkit/store_test.h"
#include "tests/support/temporary_files.h"
#include "tests/support/variables.h"

namespace dch::testkit {
namespace {

class ZordchdDeathTest : public DyingServerTest {
 protected:
  // A start that comes to an early end.
  void dieWhileStarting() {
    Process process(serverPath(), {"--port", std::to_string(_server->port()), "--store", _path});
    std::this_thread::sleep_for(std::chrono::microseconds(_random() % 20'000));
    process.signal(SIGKILL);
    process.finish();
  }

  const TemporaryFolder _folder;
  const std::string _path = _folder.path() + "/state.db";
};

TEST_F(ZordchdDeathTest, LosesNothingThatItAcknowledged) {
  const unsigned deaths = numberFrom("ZORD410_SERVER_DEATHS", 6);
  begin(_path);
  startSenders();
  for (unsigned death = 1; death <= deaths; ++death) {
    std::this_thread::sleep_for(std::chrono::milliseconds(_random() % 300));
    die();
    if (death % 3 == 0) dieWhileStarting();
    // As a rule the next server is the first one that reads the file.
    if (death % (deaths / 5 + 1) == deaths / 5) compareWithFile(_path);
    begin(_path);
  }
  EXPECT_TRUE(allSend());
  const std::uint64_t rows = stopSenders();
  const KeptRows found = compareWithFile(_path);
  EXPECT_EQ(found.acknowledged, rows);
  compareWithServer();
  EXPECT_EQ(query(_path, "PRAGMA integrity_check"), "ok\n");
  std::cout << deaths << " deaths: " << summaryOf(rows, found);
}

}  // namespace
}  // namespace dch::testkit
