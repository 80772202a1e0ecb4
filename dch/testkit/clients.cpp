#include "dch/testkit/clients.h"

#include "dch/net/port.h"

namespace dch::testkit {

int portToLeave() {
  constexpr int anyFree = 0;
  return ntohs(openPort({htonl(INADDR_LOOPBACK)}, anyFree).address.port);
}

}  // namespace dch::testkit
