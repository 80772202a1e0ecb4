#include "dch/testkit/clients.h"

#include "dch/free_port.h"

namespace dch::testkit {

int portToLeave() {
  return findFreePort({htonl(INADDR_LOOPBACK)});
}

}  // namespace dch::testkit
