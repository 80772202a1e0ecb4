// A server that is told to stop while its disk does not answer.
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <cstdlib>
#include <future>
#include <thread>

#include "dch/net/port.h"
#include "dch/service/server.h"
#include "dch/testkit/clients.h"
#include "dch/testkit/faulty_vfs.h"
#include "dch/testkit/messages.h"
#include "dch/testkit/notify_socket.h"
#include "tests/support/temporary_files.h"

namespace dch::testkit {
namespace {

// What all files of this process are on.
class StandingDisk {
 public:
  StandingDisk() { sqlite3_vfs_register(sqlite3_vfs_find(_vfs.name()), 1); }
  ~StandingDisk() { sqlite3_vfs_register(sqlite3_vfs_find("unix"), 1); }

  // From now on nothing is written.
  void stand() {
    _vfs.setDecision([goesOn = std::shared_future(_goesOn.get_future())](DiskOperation) {
      goesOn.wait();
      return DiskOutcome::works;
    });
  }
  void goOn() { _goesOn.set_value(); }

 private:
  FaultyVfs _vfs;
  std::promise<void> _goesOn;
};

TEST(ServerStoppingTest, IsAliveAndAnswersWhenTheDiskGoesOn) {
  const TemporaryFolder folder;
  const NotifySocket manager(folder.path() + "/notify");
  setenv("NOTIFY_SOCKET", manager.name().c_str(), 1);
  setenv("WATCHDOG_USEC", "300000", 1);
  // Whichever thread runs the loop takes it.
  sigset_t taken;
  sigemptyset(&taken);
  sigaddset(&taken, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &taken, nullptr);
  StandingDisk disk;
  ServedPort port = openPort({htonl(INADDR_LOOPBACK)}, 0);
  const UdpClient client(ntohs(port.address.port));
  std::thread running([&] { Server(std::move(port), folder.path() + "/state.db", {}, {}).run(); });

  EXPECT_EQ(statusOf(client.ask(registerMessage())), 0);
  disk.stand();
  client.send(unregisterMessage("HOSTMON"));
  for (int i = 0; i < 3; ++i) EXPECT_EQ(manager.receiveUntil("WATCHDOG=1"), "WATCHDOG=1");
  kill(getpid(), SIGTERM);
  EXPECT_EQ(manager.receiveUntil("STOPPING=1"), "STOPPING=1");
  for (int i = 0; i < 3; ++i) EXPECT_EQ(manager.receiveUntil("WATCHDOG=1"), "WATCHDOG=1");
  EXPECT_EQ(client.tryReceive(0), std::nullopt);
  disk.goOn();
  running.join();
  EXPECT_EQ(statusOf(client.receive().value_or("")), 0);
}

}  // namespace
}  // namespace dch::testkit
