// Requests of all kinds that are cut, changed in a bit or joined: others are served meanwhile, and
// what they have is left as it is.
#include <gtest/gtest.h>
#include <signal.h>

#include <functional>
#include <optional>

#include "dch/testkit/clients.h"
#include "dch/testkit/messages.h"
#include "dch/testkit/server_process.h"
#include "dch/testkit/store_test.h"
#include "tests/support/temporary_files.h"
#include "zordchcl/messages.h"
#include "zordchcl/status.h"

namespace dch::testkit {
namespace {

// Of the application whose requests are mangled. It is more than one bit from that of the other.
constexpr ZORA_Long mangledHandle = 6;

class ZordchdMangledTest : public ::testing::Test {
 protected:
  ZordchdMangledTest() {
    start();
    EXPECT_EQ(statusOf(_witness->ask(registerMessage())), DCH_STATUS_OK);
    _handle = goOnline("HOSTMON", "host1");
    EXPECT_EQ(statusOf(_witness->ask(_requests.front())), DCH_STATUS_OK);
    for (ZORA_Long handle = _handle + 1; handle <= mangledHandle; ++handle)
      EXPECT_EQ(goOnline("OTHER", "host" + std::to_string(handle)), handle);
    _catalogue = catalogue();
  }

  void start() {
    _server.emplace(ServerProcess::Arguments{"--store", _path});
    _witness.emplace(_server->port());
    // One for all: what it subscribes to is sent to nobody else.
    _mangler.emplace(_server->port());
  }

  ZORA_Long goOnline(const std::string& application, const std::string& source) {
    return handleOf(_witness->ask(onlineMessage(application, "load", source)));
  }

  std::string catalogue() {
    return _witness->ask(catalogueMessage(DCH_REQUEST_APPLICATIONS, "HOSTMON")) +
           _witness->ask(catalogueMessage(DCH_REQUEST_ATTRIBUTES, "HOSTMON"));
  }

  // Somebody else's row is taken.
  void expectServes() {
    const std::string row = dataMessage(_handle, {{"load1", 'D', std::to_string(_rows)}});
    ASSERT_EQ(statusOf(_witness->ask(row)), DCH_STATUS_OK);
    ++_rows;
  }

  void expectUntouched() {
    EXPECT_EQ(catalogue(), _catalogue);
    EXPECT_EQ(goOnline("HOSTMON", "host1"), _handle);
    expectServes();
    EXPECT_EQ(query(_path,
                    "SELECT count(*), count(DISTINCT load1), max(load1 + 0) FROM "
                    "\"HOSTMON.load\" WHERE source = 'host1'"),
              std::to_string(_rows) + "|" + std::to_string(_rows) + "|" +
                  std::to_string(_rows - 1) + "\n");
  }

  // The same holds for a server that is started again.
  void finish() {
    expectUntouched();
    EXPECT_EQ(_server->stop(SIGKILL), -SIGKILL);
    start();
    expectUntouched();
    EXPECT_EQ(_server->stop(SIGTERM), 0) << _server->standardError();
  }

  void sendAsDatagram(const std::string& bytes) {
    _mangler->send(bytes);
    constexpr int burst = 20;
    if (++_sent % burst == 0) expectServes();
  }

  // Waits until the server is done with it.
  void sendOnConnection(const std::string& bytes) {
    const TcpClient client(_server->port());
    client.send(bytes);
    client.finishSending();
    client.StreamSocket::receive(std::string::npos);
    constexpr int burst = 20;
    if (++_sent % burst == 0) expectServes();
  }

  static std::string withRightLength(const std::string& message) {
    return message.size() < 4 ? message
                              : withLengthWord(message, static_cast<std::uint32_t>(message.size()));
  }

  static std::string withBitFlipped(std::string message, std::size_t bit) {
    char& byte = message[bit / 8];
    byte = static_cast<char>(byte ^ (1 << bit % 8));
    return message;
  }

  const TemporaryFolder _folder;
  const std::string _path = _folder.path() + "/state.db";
  const std::vector<std::string> _requests = requestsOfEachKind("OTHER", mangledHandle);
  std::optional<ServerProcess> _server;
  std::optional<UdpClient> _witness, _mangler;
  ZORA_Long _handle = 0;
  std::string _catalogue;
  int _rows = 0;
  int _sent = 0;
};

TEST_F(ZordchdMangledTest, CutDatagrams) {
  for (const std::string& request : _requests)
    for (std::size_t size = 0; size < request.size(); ++size) {
      sendAsDatagram(request.substr(0, size));
      sendAsDatagram(withRightLength(request.substr(0, size)));
    }
  finish();
}

TEST_F(ZordchdMangledTest, DatagramsWithAnyBitChanged) {
  for (const std::string& request : _requests)
    for (std::size_t bit = 0; bit < request.size() * 8; ++bit)
      sendAsDatagram(withBitFlipped(request, bit));
  finish();
}

// Two in one datagram are none.
TEST_F(ZordchdMangledTest, JoinedDatagrams) {
  const UdpClient client(_server->port());
  for (const std::string& first : _requests)
    for (const std::string& second : _requests) {
      client.send(first + second);
      client.send(withRightLength(first + second.substr(4)));
      expectServes();
    }
  const std::string attributes = _witness->ask(catalogueMessage(DCH_REQUEST_ATTRIBUTES, "OTHER"));
  EXPECT_EQ(textOf(attributes), "load,load1,D,16,\n");
  finish();
}

TEST_F(ZordchdMangledTest, ConnectionsThatEndInTheMiddle) {
  for (const std::string& request : _requests)
    for (std::size_t size = 0; size < request.size(); size += 3) {
      sendOnConnection(request.substr(0, size));
      sendOnConnection(_requests.back() + withRightLength(request.substr(0, size)) + request);
      TcpClient gone(_server->port());
      gone.send(request.substr(0, size));
      gone.breakOff();
    }
  finish();
}

TEST_F(ZordchdMangledTest, ConnectionsWithBitsChanged) {
  for (const std::string& request : _requests)
    for (std::size_t bit = 0; bit < request.size() * 8; bit += 11)
      sendOnConnection(withBitFlipped(request, bit) + request);
  finish();
}

}  // namespace
}  // namespace dch::testkit
