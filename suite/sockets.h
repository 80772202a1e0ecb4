// sockets.h: opening and closing the sockets of the channel.
//
// Any thread may call any function here. None throws.
#ifndef SUITE_SOCKETS_H
#define SUITE_SOCKETS_H

#include <netinet/in.h>

enum ZOR0_SocketKind { SOCK_KIND_TCP = 1, SOCK_KIND_UDP = 2 };

// Flags of ZOR0_OpenLocalSocket.
enum ZOR0_SocketFlag {
  ZOR0_SOCKET_PLAIN = 0,
  // A stream socket may take a port whose last owner has just closed. Datagram sockets ignore it:
  // there the option would let two servers share a port.
  ZOR0_SOCKET_REUSE = 1,
  // Bound to the loopback interface whatever the port.
  ZOR0_SOCKET_LOOPBACK = 2,
};

// Opens a close-on-exec socket of `kind` bound to `portInNetworkOrder`, 0 for any free one. Without
// ZOR0_SOCKET_LOOPBACK a socket on any free port is bound to every interface, and one on a given
// port to the address that ZOR0_BIND_ADDR names, 127.0.0.1 by default. Fills `address` with what it
// bound. `*errorOut` becomes 0, or the system's error number. Returns the descriptor, or -1.
int ZOR0_OpenLocalSocket(int kind, unsigned short portInNetworkOrder, sockaddr_in* address,
                         int flag, int* errorOut);

// The local port of a socket in host order, 0 when it has none.
unsigned short ZOR0_RetrieveSockPort(int descriptor);

// Closes a socket. A descriptor that is not open is ignored.
void ZOR0_CloseTheSocket(int descriptor);

#endif  // SUITE_SOCKETS_H
