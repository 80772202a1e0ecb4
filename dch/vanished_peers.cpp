#include "dch/vanished_peers.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <cerrno>
#include <system_error>

namespace dch {

// Accepted sockets take these settings over from the one that listens.
void endConnectionsOfVanishedPeers(int listener) {
  constexpr int quietSeconds = 60;
  constexpr int secondsBetweenProbes = 10;
  constexpr int probes = 3;
  struct Setting {
    int level;
    int name;
    int value;
  };
  for (const Setting& setting : {Setting{SOL_SOCKET, SO_KEEPALIVE, 1},
                                 {IPPROTO_TCP, TCP_KEEPIDLE, quietSeconds},
                                 {IPPROTO_TCP, TCP_KEEPINTVL, secondsBetweenProbes},
                                 {IPPROTO_TCP, TCP_KEEPCNT, probes}})
    if (setsockopt(listener, setting.level, setting.name, &setting.value, sizeof setting.value) !=
        0)
      throw std::system_error(errno, std::generic_category(), "cannot watch over connections");
}

}  // namespace dch
