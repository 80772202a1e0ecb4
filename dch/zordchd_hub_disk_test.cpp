// A whole hub on a disk that fails, is full or does not answer for a while: it loses no row of
// other sites, and has none twice.
#include <gtest/gtest.h>
#include <signal.h>

#include <atomic>
#include <chrono>
#include <numeric>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "dch/net/port.h"
#include "dch/service/server.h"
#include "dch/testkit/clients.h"
#include "dch/testkit/faulty_vfs.h"
#include "dch/testkit/link_test.h"
#include "dch/testkit/linked_server.h"
#include "dch/testkit/messages.h"
#include "dch/testkit/nats_server.h"
#include "dch/testkit/shared.h"
#include "dch/testkit/standstill.h"
#include "dch/testkit/store_test.h"
#include "dch/testkit/stream_reader.h"
#include "tests/support/process.h"
#include "tests/support/temporary_files.h"
#include "tests/support/wait_until.h"
#include "zordchcl/status.h"

namespace dch::testkit {
namespace {

// What the test and the process of the hub have in common.
struct HubDisk {
  std::atomic<int> natsPort{0};
  Standstill hang;
  std::atomic<DiskOutcome> ofWrites{DiskOutcome::works};
  std::atomic<unsigned> refusedWrites{0};

  DiskOutcome decide(DiskOperation operation) {
    hang.wait();
    if (operation != DiskOperation::write || ofWrites == DiskOutcome::works)
      return DiskOutcome::works;
    ++refusedWrites;
    return ofWrites;
  }
};

class ZordchdHubDiskTest : public ::testing::Test {
 protected:
  ~ZordchdHubDiskTest() override { _disk->hang.isOn = false; }

  // What the process of the hub does. It is made before there is a NATS server, as it is a fork of
  // one without other threads.
  int serve() const {
    while (_disk->natsPort == 0) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    FaultyVfs vfs;
    sqlite3_vfs_register(sqlite3_vfs_find(vfs.name()), 1);  // what the server opens is on it
    vfs.setDecision([this](DiskOperation operation) { return _disk->decide(operation); });
    Configuration configuration;
    configuration.link = {.servers = {"nats://127.0.0.1:" + std::to_string(_disk->natsPort)},
                          .site = "hub",
                          .storeRemote = true};
    Server(openPort({htonl(INADDR_LOOPBACK)}, 0), _path, {}, configuration).run();
    return 0;
  }

  void SetUp() override {
    _disk->natsPort = _nats.port();
    _hub.waitForOutput("\n");
    _west.begin();
  }

  void sendRows(int count) {
    const TcpClient client(_west.port());
    ASSERT_EQ(statusOf(client.ask(registerMessage())), DCH_STATUS_OK);
    const ZORA_Long handle = handleOf(client.ask(onlineMessage("HOSTMON", "load", "host1")));
    for (const int end = _sent + count; _sent < end; ++_sent)
      ASSERT_EQ(statusOf(client.ask(dataMessage(handle, {{"load1", 'D', std::to_string(_sent)}}))),
                DCH_STATUS_OK);
  }

  std::vector<int> rowsOfHub() const {
    std::istringstream lines(query(_path, "SELECT load1 FROM \"HOSTMON.load\""));
    std::vector<int> rows;
    for (int number; lines >> number;) rows.push_back(number);
    return rows;
  }
  std::vector<int> allRows() const {
    std::vector<int> rows(static_cast<std::size_t>(_sent));
    std::iota(rows.begin(), rows.end(), 0);
    return rows;
  }
  bool hubHasAll() const {
    return waitUntil(
        [this] {
          std::this_thread::sleep_for(std::chrono::milliseconds(20));
          return rowsOfHub() == allRows();
        },
        linkPatience);
  }
  void expectHubHasAll() {
    EXPECT_TRUE(hubHasAll());
    _hub.signal(SIGTERM);
    EXPECT_EQ(_hub.finish().exitStatus, 0);
    EXPECT_EQ(rowsOfHub(), allRows());
  }

  const TemporaryFolder _folder;
  const std::string _path = _folder.path() + "/state.db";
  const Shared<HubDisk> _disk;
  Process _hub{[this] { return serve(); }};
  NatsServer _nats;
  LinkedServer _west{"west", _nats.port()};
  int _sent = 0;
};

TEST_F(ZordchdHubDiskTest, ThatFailsOrIsFullForAWhileLosesNoRow) {
  sendRows(20);
  EXPECT_TRUE(hubHasAll());
  for (const DiskOutcome outcome :
       {DiskOutcome::isFull, DiskOutcome::fails, DiskOutcome::failsHalfway}) {
    const unsigned before = _disk->refusedWrites;
    _disk->ofWrites = outcome;
    sendRows(20);
    // It tries again and again.
    EXPECT_TRUE(waitUntil([&] { return _disk->refusedWrites >= before + 3; }, linkPatience));
    sendRows(20);
    EXPECT_LT(rowsOfHub().size(), allRows().size());
    _disk->ofWrites = DiskOutcome::works;
    EXPECT_TRUE(hubHasAll());
  }
  sendRows(20);
  expectHubHasAll();
}

TEST_F(ZordchdHubDiskTest, ThatDoesNotAnswerForAWhileLosesNoRow) {
  sendRows(20);
  EXPECT_TRUE(hubHasAll());
  _disk->hang.isOn = true;
  constexpr int manyRows = 2'000;  // more than it collects while nothing is kept
  sendRows(manyRows);
  readStream(_nats.url(), 20 + manyRows);
  EXPECT_TRUE(waitUntil([&] { return _disk->hang.isMet.load(); }, linkPatience));
  _disk->hang.isOn = false;
  sendRows(20);
  expectHubHasAll();
}

}  // namespace
}  // namespace dch::testkit
