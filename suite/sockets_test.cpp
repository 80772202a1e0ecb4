#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

#include "suite/sockets.h"

namespace {

// A socket that is opened as the library opens its own and closed at the end of the test.
struct Opened {
  explicit Opened(int kind, unsigned short port = 0, int flag = ZOR0_SOCKET_PLAIN)
      : descriptor(ZOR0_OpenLocalSocket(kind, htons(port), &address, flag, &error)) {}
  ~Opened() { ZOR0_CloseTheSocket(descriptor); }
  Opened(const Opened&) = delete;

  unsigned short port() const { return ZOR0_RetrieveSockPort(descriptor); }
  std::string host() const { return inet_ntoa(address.sin_addr); }

  sockaddr_in address{};
  int error = -1;
  int descriptor;
};

int socketType(int descriptor) {
  int type = 0;
  socklen_t length = sizeof type;
  getsockopt(descriptor, SOL_SOCKET, SO_TYPE, &type, &length);
  return type;
}

TEST(OpenLocalSocket, OpensBothKindsOnAFreePort) {
  const Opened stream(SOCK_KIND_TCP);
  const Opened datagram(SOCK_KIND_UDP);
  EXPECT_EQ(stream.error, 0);
  EXPECT_EQ(datagram.error, 0);
  EXPECT_EQ(socketType(stream.descriptor), SOCK_STREAM);
  EXPECT_EQ(socketType(datagram.descriptor), SOCK_DGRAM);
  EXPECT_NE(stream.port(), 0);
  EXPECT_EQ(ntohs(datagram.address.sin_port), datagram.port());
  EXPECT_EQ(datagram.address.sin_family, AF_INET);
}

TEST(OpenLocalSocket, IsClosedOnExec) {
  const Opened socket(SOCK_KIND_UDP);
  EXPECT_NE(fcntl(socket.descriptor, F_GETFD) & FD_CLOEXEC, 0);
}

TEST(OpenLocalSocket, AFreePortIsBoundToEveryInterface) {
  EXPECT_EQ(Opened(SOCK_KIND_UDP).host(), "0.0.0.0");
}

TEST(OpenLocalSocket, LoopbackFlagKeepsAFreePortLocal) {
  EXPECT_EQ(Opened(SOCK_KIND_UDP, 0, ZOR0_SOCKET_LOOPBACK).host(), "127.0.0.1");
}

// The system gives a port, and it is free again afterwards.
unsigned short freePort() {
  return Opened(SOCK_KIND_TCP, 0, ZOR0_SOCKET_LOOPBACK).port();
}

TEST(OpenLocalSocket, AGivenPortIsBoundToTheLoopbackInterfaceByDefault) {
  unsetenv("ZOR0_BIND_ADDR");
  const unsigned short port = freePort();
  const Opened socket(SOCK_KIND_TCP, port);
  EXPECT_EQ(socket.error, 0);
  EXPECT_EQ(socket.port(), port);
  EXPECT_EQ(socket.host(), "127.0.0.1");
}

TEST(OpenLocalSocket, AGivenPortIsBoundToTheConfiguredAddress) {
  setenv("ZOR0_BIND_ADDR", "0.0.0.0", 1);
  EXPECT_EQ(Opened(SOCK_KIND_TCP, freePort()).host(), "0.0.0.0");
  setenv("ZOR0_BIND_ADDR", "127.0.0.2", 1);
  EXPECT_EQ(Opened(SOCK_KIND_TCP, freePort()).host(), "127.0.0.2");
  EXPECT_EQ(Opened(SOCK_KIND_TCP, freePort(), ZOR0_SOCKET_LOOPBACK).host(), "127.0.0.1");
}

TEST(OpenLocalSocket, AnInvalidConfiguredAddressBindsNowhere) {
  for (const char* invalid : {"", "nonsense", "127.0.0.1.1", "0"}) {
    setenv("ZOR0_BIND_ADDR", invalid, 1);
    const Opened socket(SOCK_KIND_TCP, freePort());
    EXPECT_LT(socket.descriptor, 0) << invalid;
    EXPECT_EQ(socket.error, EADDRNOTAVAIL) << invalid;
  }
}

TEST(OpenLocalSocket, APortInUseIsReported) {
  for (const int kind : {SOCK_KIND_TCP, SOCK_KIND_UDP})
    for (const int flag : {ZOR0_SOCKET_PLAIN, ZOR0_SOCKET_REUSE}) {
      const Opened first(kind, 0, ZOR0_SOCKET_LOOPBACK);
      if (kind == SOCK_KIND_TCP) listen(first.descriptor, 1);
      const Opened second(kind, first.port(), flag);
      EXPECT_LT(second.descriptor, 0);
      EXPECT_EQ(second.error, EADDRINUSE);
    }
}

TEST(OpenLocalSocket, AFailureLeavesTheCallersAddressAlone) {
  const Opened first(SOCK_KIND_UDP, 0, ZOR0_SOCKET_LOOPBACK);
  const Opened second(SOCK_KIND_UDP, first.port());
  EXPECT_EQ(second.address.sin_family, 0);
}

// Leaves `port` with a connection in the state after closing, which holds the port for a while.
void closeWithAConnection(const Opened& listener) {
  listen(listener.descriptor, 1);
  const Opened client(SOCK_KIND_TCP, 0, ZOR0_SOCKET_LOOPBACK);
  ASSERT_EQ(connect(client.descriptor, reinterpret_cast<const sockaddr*>(&listener.address),
                    sizeof listener.address),
            0);
  const int accepted = accept(listener.descriptor, nullptr, nullptr);
  ASSERT_GE(accepted, 0);
  shutdown(accepted, SHUT_WR);
  char byte;
  ASSERT_EQ(recv(client.descriptor, &byte, 1, 0), 0);
  close(accepted);
}

TEST(OpenLocalSocket, AStreamMayTakeAPortThatWasJustClosed) {
  unsigned short port = 0;
  {
    const Opened listener(SOCK_KIND_TCP, 0, ZOR0_SOCKET_LOOPBACK | ZOR0_SOCKET_REUSE);
    port = listener.port();
    closeWithAConnection(listener);
  }
  EXPECT_EQ(Opened(SOCK_KIND_TCP, port).error, EADDRINUSE);
  EXPECT_EQ(Opened(SOCK_KIND_TCP, port, ZOR0_SOCKET_REUSE).error, 0);
}

TEST(OpenLocalSocket, AnUnknownKindIsRefused) {
  const Opened socket(3);
  EXPECT_LT(socket.descriptor, 0);
  EXPECT_EQ(socket.error, EINVAL);
}

TEST(OpenLocalSocket, AddressAndErrorNumberMayBeLeftOut) {
  const int descriptor =
      ZOR0_OpenLocalSocket(SOCK_KIND_UDP, 0, nullptr, ZOR0_SOCKET_PLAIN, nullptr);
  EXPECT_GE(descriptor, 0);
  ZOR0_CloseTheSocket(descriptor);
}

TEST(RetrieveSockPort, IsZeroWithoutASocket) {
  EXPECT_EQ(ZOR0_RetrieveSockPort(-999), 0);
  const int file = open("/dev/null", O_RDONLY | O_CLOEXEC);
  EXPECT_EQ(ZOR0_RetrieveSockPort(file), 0);
  close(file);
}

TEST(CloseTheSocket, ClosesAndIgnoresWhatIsNotOpen) {
  const int descriptor =
      ZOR0_OpenLocalSocket(SOCK_KIND_UDP, 0, nullptr, ZOR0_SOCKET_PLAIN, nullptr);
  ZOR0_CloseTheSocket(descriptor);
  EXPECT_EQ(fcntl(descriptor, F_GETFD), -1);
  ZOR0_CloseTheSocket(-999);
}

}  // namespace
