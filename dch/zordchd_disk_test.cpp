// The whole server on a disk that does not answer: what is to be kept waits, and nothing else.
// ZORD410_HANG_SECONDS sets how long it hangs at least.
#include <gtest/gtest.h>
#include <signal.h>

#include <chrono>
#include <list>
#include <memory>
#include <set>

#include "dch/net/port.h"
#include "dch/service/server.h"
#include "dch/testkit/bystander.h"
#include "dch/testkit/clients.h"
#include "dch/testkit/faulty_vfs.h"
#include "dch/testkit/messages.h"
#include "dch/testkit/server_process.h"
#include "dch/testkit/shared.h"
#include "dch/testkit/standstill.h"
#include "dch/testkit/store_test.h"
#include "tests/support/process.h"
#include "tests/support/temporary_files.h"
#include "tests/support/variables.h"
#include "tests/support/wait_until.h"
#include "zordchcl/messages.h"
#include "zordchcl/status.h"

namespace dch::testkit {
namespace {

class ZordchdDiskTest : public ::testing::Test {
 protected:
  ~ZordchdDiskTest() override { _hang->isOn = false; }

  // What the process of the server does.
  int serve() const {
    FaultyVfs vfs;
    sqlite3_vfs_register(sqlite3_vfs_find(vfs.name()), 1);  // what the server opens is on it
    vfs.setDecision([this](DiskOperation) {
      _hang->wait();
      return DiskOutcome::works;
    });
    Configuration configuration;
    configuration.isVerbose = true;
    Server(openPort({htonl(INADDR_LOOPBACK)}, 0), _path, {}, configuration).run();
    return 0;
  }

  ZORA_Long goOnline(const std::string& source) {
    return handleOf(UdpClient(_port).ask(onlineMessage("HOSTMON", "load", source)));
  }

  static std::string row(ZORA_Long handle, int number) {
    return dataMessage(handle, {{"load1", 'D', std::to_string(number)}});
  }

  // What nobody has to keep is answered, over both carriers, to clients old and new.
  void expectOthersAreServed() {
    const UdpClient client(_port);
    const TcpClient connection(_port);
    EXPECT_EQ(textOf(client.ask(catalogueMessage(DCH_REQUEST_APPLICATIONS))),
              "BYSTANDER,BYS,NODP,load,1\nHOSTMON,HMN,SOCK,load disk,2\n");
    EXPECT_NE(textOf(connection.ask(catalogueMessage(DCH_REQUEST_ATTRIBUTES, "HOSTMON"))), "");
    EXPECT_EQ(statusOf(connection.ask(actionResultsMessage(1))), DCH_STATUS_UNKNOWN_ACTION);
    EXPECT_EQ(statusOf(client.ask(dataMessage(4711))), DCH_STATUS_UNKNOWN_HANDLE);
    // A new subscriber of status is told what is on line, and its subscription ends again.
    const UdpClient status(_port);
    status.send(statusSubscribeMessage());
    std::set<std::string> online;
    for (int i = 0; i < 3; ++i) online.insert(eventText(status.receive().value_or("")));
    EXPECT_EQ(online, (std::set<std::string>{"BYSTANDER,load,host1,1015", "HOSTMON,load,host1,1015",
                                             "HOSTMON,load,host2,1015"}));
    status.send(statusSubscribeMessage(DCH_SUBSCRIPTION_STOP));
  }

  const TemporaryFolder _folder;
  const std::string _path = _folder.path() + "/state.db";
  const Shared<Standstill> _hang;  // of the disk
  Process _server{[this] { return serve(); }};
  const int _port = portIn(_server.waitForOutput("\n"));
};

TEST_F(ZordchdDiskTest, ThatDoesNotAnswerMakesOnlyThatWaitWhichIsToBeKept) {
  constexpr int rows = 100;
  const std::chrono::seconds hang(numberFrom("ZORD410_HANG_SECONDS", 0));
  ASSERT_EQ(statusOf(UdpClient(_port).ask(registerMessage())), DCH_STATUS_OK);
  const ZORA_Long handles[] = {goOnline("host1"), goOnline("host2")};
  const Bystander bystander(_port);
  const UdpClient subscriber(_port), other(_port), registrar(_port);
  subscriber.send(subscribeMessage("HOSTMON", "load"));
  subscriber.ask(unregisterMessage("NONE"));  // it is done with the subscription then

  _hang->isOn = true;
  std::list<UdpClient> senders;
  for (int number = 1; number <= rows; ++number)
    senders.emplace_back(_port).send(row(handles[number % 2], number));
  registrar.send(registerMessage("appl:OTHER,OTH;group:g;attr:a,N,4;", "OTHER", "OTH"));
  other.send(deferralMessage(42));
  ASSERT_TRUE(waitUntil([&] { return _hang->isMet.load(); }));
  bystander.expectIsServed([this] { expectOthersAreServed(); }, Bystander::Wants::questions, hang);
  // Subscribers come while rows wait, and get those too.
  other.send(subscribeMessage("HOSTMON", "load"));
  other.ask(unregisterMessage("NONE"));
  const std::string waiting = "  changes_waiting " + std::to_string(rows + 2) + "\n";
  EXPECT_TRUE(waitUntil([&] {
    _server.signal(SIGUSR1);
    return _server.standardError().find(waiting) != std::string::npos;
  }));
  for (const UdpClient& sender : senders) EXPECT_FALSE(sender.hasDatagram());
  EXPECT_FALSE(registrar.hasDatagram());
  EXPECT_FALSE(subscriber.hasDatagram());

  _hang->isOn = false;
  for (const UdpClient& sender : senders)
    EXPECT_EQ(statusOf(sender.receive().value_or("")), DCH_STATUS_OK);
  EXPECT_EQ(statusOf(registrar.receive().value_or("")), DCH_STATUS_OK);
  for (const UdpClient* const each : {&subscriber, &other}) {
    std::multiset<std::string> pushed, sent;
    for (int number = 1; number <= rows; ++number) {
      pushed.insert(each->receive().value_or(""));
      sent.insert(row(handles[number % 2], number));
    }
    EXPECT_EQ(pushed, sent);
  }
  // Once: what is asked now is answered next.
  for (const UdpClient& sender : senders)
    EXPECT_EQ(statusOf(sender.ask(unregisterMessage("NONE"))), DCH_STATUS_UNKNOWN_APPLICATION);
  EXPECT_EQ(statusOf(registrar.ask(unregisterMessage("OTHER"))), DCH_STATUS_OK);
  EXPECT_FALSE(subscriber.hasDatagram());
  _server.signal(SIGTERM);
  EXPECT_EQ(_server.finish().exitStatus, 0);
  EXPECT_EQ(query(_path, "SELECT count(*), count(DISTINCT load1) FROM \"HOSTMON.load\""),
            "100|100\n");
  EXPECT_EQ(query(_path, "SELECT action_id FROM deferrals"), "42\n");
}

}  // namespace
}  // namespace dch::testkit
