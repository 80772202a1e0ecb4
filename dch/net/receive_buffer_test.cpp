#include "dch/net/receive_buffer.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/socket.h>

#include "dch/testkit/clients.h"
#include "dch/testkit/messages.h"
#include "dch/testkit/server_process.h"

namespace dch {
namespace {

using testkit::noServer;
using testkit::ServerProcess;
using testkit::UdpClient;

// Keeps many answers.
class PatientClient : public UdpClient {
 public:
  explicit PatientClient(int serverPort) : UdpClient(serverPort) {
    enlargeReceiveBuffer(descriptor());
  }

  int receiveBufferBytes() const {
    int bytes = 0;
    socklen_t length = sizeof bytes;
    EXPECT_EQ(getsockopt(descriptor(), SOL_SOCKET, SO_RCVBUF, &bytes, &length), 0);
    return bytes;
  }
  void setReceiveBuffer(int bytes) const {
    EXPECT_EQ(setsockopt(descriptor(), SOL_SOCKET, SO_RCVBUF, &bytes, sizeof bytes), 0);
  }
  void enlarge() const { enlargeReceiveBuffer(descriptor()); }
};

TEST(ReceiveBuffer, GrowsAndDoesNotShrink) {
  const PatientClient client(noServer);
  const int enlarged = client.receiveBufferBytes();
  client.setReceiveBuffer(4096);
  ASSERT_LT(client.receiveBufferBytes(), enlarged);
  client.enlarge();
  EXPECT_EQ(client.receiveBufferBytes(), enlarged);
  client.enlarge();
  EXPECT_EQ(client.receiveBufferBytes(), enlarged);
}

TEST(ReceiveBuffer, HoldsRowsOfHundredsOfSourcesAtOnce) {
  constexpr int rows = 400;
  ServerProcess server;
  PatientClient client(server.port());
  ASSERT_EQ(testkit::statusOf(client.ask(testkit::registerMessage())), 0);
  const auto online =
      testkit::onlineAnswerOf(client.ask(testkit::onlineMessage("HOSTMON", "load", "host")));
  ASSERT_TRUE(online);
  const std::string row = testkit::dataMessage(online->handle, {{"load1", 'D', "0.42"}});
  // All of them lie in the buffer before the server looks: it stands still meanwhile.
  kill(server.processId(), SIGSTOP);
  for (int i = 0; i < rows; ++i) client.send(row);
  kill(server.processId(), SIGCONT);
  for (int i = 0; i < rows; ++i)
    ASSERT_EQ(testkit::statusOf(client.receive().value_or("")), 0) << i;
  EXPECT_EQ(server.stop(SIGTERM), 0) << server.standardError();
}

}  // namespace
}  // namespace dch
