// socket_option.h: options and addresses of sockets, with errors as exceptions.
#ifndef DCH_NET_SOCKET_OPTION_H
#define DCH_NET_SOCKET_OPTION_H

#include <netinet/in.h>

#include <string>

namespace dch {

// Throws std::system_error with `what` and the error of the last call of the system.
[[noreturn]] void throwSystemError(const std::string& what);

// These throw std::system_error.
void setOption(int socket, int level, int name, int value);
sockaddr_in localAddressOf(int socket);

}  // namespace dch

#endif  // DCH_NET_SOCKET_OPTION_H
