// What the whole server says of itself when its disk does not do what it should.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <string>

#include "dch/net/port.h"
#include "dch/service/server.h"
#include "dch/testkit/clients.h"
#include "dch/testkit/faulty_vfs.h"
#include "dch/testkit/http_client.h"
#include "dch/testkit/messages.h"
#include "dch/testkit/server_process.h"
#include "dch/testkit/shared.h"
#include "dch/testkit/standstill.h"
#include "tests/support/process.h"
#include "tests/support/temporary_files.h"
#include "tests/support/wait_until.h"
#include "zordchcl/status.h"

namespace dch::testkit {
namespace {

using ::testing::StartsWith;

class ZordchdWebDiskTest : public ::testing::Test {
 protected:
  ZordchdWebDiskTest() {
    const UdpClient client(_port);
    EXPECT_EQ(statusOf(client.ask(registerMessage())), DCH_STATUS_OK);
    _handle = handleOf(client.ask(onlineMessage("HOSTMON", "load", "host1")));
    EXPECT_EQ(get("/healthz").body, "ok\n");
  }
  ~ZordchdWebDiskTest() override {
    _hang->isOn = false;
    *_fails = false;
    EXPECT_TRUE(waitUntil([&] {
      UdpClient(_port).ask(row());
      return get("/healthz").status == 200;
    }));
    _server.signal(SIGTERM);
    EXPECT_EQ(_server.finish().exitStatus, 0);
  }

  // What the process of the server does.
  int serve() const {
    FaultyVfs vfs;
    sqlite3_vfs_register(sqlite3_vfs_find(vfs.name()), 1);  // what the server opens is on it
    vfs.setDecision([this](DiskOperation) {
      _hang->wait();
      return *_fails ? DiskOutcome::fails : DiskOutcome::works;
    });
    Configuration configuration;
    configuration.webAddress = WebAddress{"127.0.0.1", 0};
    Server(openPort({htonl(INADDR_LOOPBACK)}, 0), _folder.path() + "/state.db", {}, configuration)
        .run();
    return 0;
  }

  std::string row() const { return dataMessage(_handle, {{"load1", 'D', "1"}}); }
  HttpAnswer get(const std::string& target) const { return httpGet(_page, target); }

  // It says so, and goes on to show what is known without the disk.
  void expectTrouble(const std::string& sentence) const {
    EXPECT_TRUE(waitUntil([&] { return get("/healthz").status == 503; }));
    EXPECT_THAT(get("/healthz").body, StartsWith(sentence));
    for (const char* target : {"/", "/api/applications", "/api/state", "/metrics"})
      EXPECT_EQ(get(target).status, 200) << target;
  }

  const TemporaryFolder _folder;
  const Shared<Standstill> _hang;  // of the disk
  const Shared<std::atomic<bool>> _fails;
  Process _server{[this] { return serve(); }};
  const std::string _output = _server.waitForOutput("/\n");
  const int _port = portIn(_output);
  const int _page = pagePortIn(_output);
  ZORA_Long _handle = 0;
};

TEST_F(ZordchdWebDiskTest, SaysThatTheDiskFails) {
  *_fails = true;
  EXPECT_EQ(statusOf(UdpClient(_port).ask(row())), DCH_STATUS_NOT_STORED);
  expectTrouble("the state file cannot be written");
  EXPECT_EQ(get("/api/state").json()["counters"]["web_failures"], 0) << "it is asked how it is";
  *_fails = false;
  EXPECT_TRUE(waitUntil([&] { return get("/healthz").status == 200; }))
      << "also when nobody sends a row";
}

TEST_F(ZordchdWebDiskTest, SaysThatTheDiskDoesNotAnswer) {
  _hang->isOn = true;
  const UdpClient client(_port);
  client.send(row());
  expectTrouble("the state file has not answered for ");
  _hang->isOn = false;
  EXPECT_EQ(statusOf(client.receive().value_or("")), DCH_STATUS_OK);
}

}  // namespace
}  // namespace dch::testkit
