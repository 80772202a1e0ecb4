// test_endpoint.h: what the tests of a client endpoint share.
#ifndef ZORDSOCK_TEST_ENDPOINT_H
#define ZORDSOCK_TEST_ENDPOINT_H

#include <fcntl.h>
#include <netinet/in.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <string>

#include "suite/sockets.h"
#include "tests/support/sockets.h"
#include "zordsock/settings.h"
#include "zordsock/zordsock.h"

// A bare datagram socket that the endpoints of this process take for their DCH. It has to be there
// before the first of them.
class DchSocket : public DatagramSocket {
 public:
  DchSocket() {
    setenv("ZORA_DCH_ADDR", "127.0.0.1", 1);
    setenv("ZORA_DCH_PORT", std::to_string(port()).c_str(), 1);
  }
};

// Lets the next pooled endpoint build the pool anew, of `sockets` sockets.
inline void forgetPool(int sockets) {
  using namespace zordsock;
  if (_UDPSockList != nullptr)
    for (int i = 0; i < _envDCHUDPSocks; ++i) ZOR0_CloseTheSocket(_UDPSockList[i].sockUDP);
  delete[] _UDPSockList;
  _UDPSockList = nullptr;
  _envDCHUDPInit = 0;
  _envDCHUDPSocks = sockets;
}

inline bool isOpen(int descriptor) {
  return fcntl(descriptor, F_GETFD) != -1;
}

inline long openDescriptors() {
  return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}

// The trace's form of a socket address, after its label.
inline std::string tracedAddress(const sockaddr_in& address) {
  std::string text = ": clientAddr <16<";
  const auto* const bytes = reinterpret_cast<const unsigned char*>(&address);
  for (std::size_t i = 0; i < sizeof address; ++i) {
    char digits[3];
    std::snprintf(digits, sizeof digits, "%02x", bytes[i]);
    text += digits;
  }
  return text + ">>\n";
}

// `size` bytes that begin with a length word, which need not tell the truth.
inline std::string messageBytes(std::size_t size, unsigned lengthWord) {
  std::string bytes(size, '\0');
  for (std::size_t i = 0; i < size; ++i)
    bytes[i] = i < 4 ? static_cast<char>(lengthWord >> (24 - 8 * i)) : static_cast<char>(i % 251);
  return bytes;
}

#endif  // ZORDSOCK_TEST_ENDPOINT_H
