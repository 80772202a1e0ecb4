// vanished_peers.h: stream connections whose other end is gone without a word.
#ifndef DCH_VANISHED_PEERS_H
#define DCH_VANISHED_PEERS_H

namespace dch {

// Makes the system end the connections that `listener`, a listening stream socket, accepts from now
// on when nothing has been heard of their peer's machine for a minute and a half. Without that a
// machine that lost its power would keep its place among the connections, and would hold up
// everybody when it went in the middle of a message. Throws std::system_error.
void endConnectionsOfVanishedPeers(int listener);

}  // namespace dch

#endif  // DCH_VANISHED_PEERS_H
