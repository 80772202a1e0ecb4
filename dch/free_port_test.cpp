#include "dch/free_port.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <string>
#include <system_error>
#include <thread>
#include <utility>

namespace dch {
namespace {

const in_addr loopback{htonl(INADDR_LOOPBACK)};

// A socket that holds a port as long as it lives.
class Holder {
 public:
  Holder(int type, unsigned short port) : _descriptor(socket(AF_INET, type | SOCK_CLOEXEC, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr = loopback;
    address.sin_port = htons(port);
    _holds = bind(_descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
  }
  ~Holder() { close(_descriptor); }
  Holder(const Holder&) = delete;
  Holder& operator=(const Holder&) = delete;
  bool holds() const { return _holds; }
  int descriptor() const { return _descriptor; }

 private:
  const int _descriptor;
  bool _holds;
};

TEST(FindFreePortTest, FindsAPortThatIsFreeForDatagramsAndStreams) {
  const unsigned short port = findFreePort(loopback);
  EXPECT_TRUE(Holder(SOCK_DGRAM, port).holds());
  EXPECT_TRUE(Holder(SOCK_STREAM, port).holds());
}

TEST(FindFreePortTest, PassesOverAPortThatIsTakenForEitherKind) {
  for (const int type : {SOCK_DGRAM, SOCK_STREAM}) {
    const unsigned short port = findFreePort(loopback);
    const Holder holder(type, port);
    ASSERT_TRUE(holder.holds());
    EXPECT_NE(findFreePort(loopback), port);
  }
}

TEST(FindFreePortTest, RefusesAnAddressThatThisMachineDoesNotHave) {
  in_addr documentation;
  inet_pton(AF_INET, "192.0.2.1", &documentation);
  EXPECT_THROW(findFreePort(documentation), std::system_error);
}

// A connection whose server has died: its port is nobody's, and yet it cannot be bound.
class AbandonedConnection {
 public:
  explicit AbandonedConnection(unsigned short port) : _client(socket(AF_INET, SOCK_STREAM, 0)) {
    const Holder server(SOCK_STREAM, port);
    EXPECT_EQ(listen(server.descriptor(), 1), 0);
    sockaddr_in address{};
    socklen_t length = sizeof address;
    getsockname(server.descriptor(), reinterpret_cast<sockaddr*>(&address), &length);
    EXPECT_EQ(connect(_client, reinterpret_cast<const sockaddr*>(&address), length), 0);
    const int connection = accept(server.descriptor(), nullptr, nullptr);
    EXPECT_GE(connection, 0);
    close(connection);
  }
  ~AbandonedConnection() { reset(); }
  AbandonedConnection(const AbandonedConnection&) = delete;
  AbandonedConnection& operator=(const AbandonedConnection&) = delete;

  // The system forgets it at once.
  void reset() {
    const linger abort{1, 0};
    setsockopt(_client, SOL_SOCKET, SO_LINGER, &abort, sizeof abort);
    if (_client >= 0) close(std::exchange(_client, -1));
  }

 private:
  int _client;
};

// Standard error as a pipe, while the object lives.
class StandardErrorPipe {
 public:
  StandardErrorPipe() : _before(dup(STDERR_FILENO)) {
    int ends[2];
    EXPECT_EQ(pipe(ends), 0);
    _readEnd = ends[0];
    dup2(ends[1], STDERR_FILENO);
    close(ends[1]);
  }
  ~StandardErrorPipe() {
    dup2(_before, STDERR_FILENO);
    close(_before);
    close(_readEnd);
  }
  StandardErrorPipe(const StandardErrorPipe&) = delete;
  StandardErrorPipe& operator=(const StandardErrorPipe&) = delete;

  // Waits for the next line.
  std::string readLine() const {
    std::string line;
    char byte = 0;
    while (!line.ends_with('\n') && read(_readEnd, &byte, 1) == 1) line += byte;
    return line;
  }

 private:
  const int _before;
  int _readEnd = -1;
};

TEST(WaitForAbandonedPortTest, WaitsUntilTheSystemFreesThePort) {
  const unsigned short port = findFreePort(loopback);
  AbandonedConnection connection(port);
  ASSERT_FALSE(Holder(SOCK_STREAM, port).holds());
  const StandardErrorPipe standardError;
  std::string told;
  std::thread later([&] {
    told = standardError.readLine();
    connection.reset();
  });
  EXPECT_TRUE(waitForAbandonedPort(loopback, port));
  std::fputs("\n", stderr);  // in case that nothing was told
  later.join();
  EXPECT_EQ(told, "zordchd: connections to an earlier server still hold port " +
                      std::to_string(port) + ": waiting until the system frees it\n");
  EXPECT_TRUE(Holder(SOCK_STREAM, port).holds());
}

TEST(WaitForAbandonedPortTest, ASignalEndsTheWait) {
  sigset_t terminate;
  sigemptyset(&terminate);
  sigaddset(&terminate, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &terminate, nullptr);
  const unsigned short port = findFreePort(loopback);
  const AbandonedConnection connection(port);
  kill(getpid(), SIGTERM);
  EXPECT_FALSE(waitForAbandonedPort(loopback, port));
}

TEST(WaitForAbandonedPortTest, DoesNotWaitForAPortThatIsFreeOrServed) {
  const unsigned short port = findFreePort(loopback);
  testing::internal::CaptureStderr();
  EXPECT_TRUE(waitForAbandonedPort(loopback, port));
  const Holder server(SOCK_STREAM, port);
  EXPECT_TRUE(listen(server.descriptor(), 1) == 0 && waitForAbandonedPort(loopback, port));
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

}  // namespace
}  // namespace dch
