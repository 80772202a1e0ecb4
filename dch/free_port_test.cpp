#include "dch/free_port.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <system_error>

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

}  // namespace
}  // namespace dch
