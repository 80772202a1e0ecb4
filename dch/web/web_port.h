// web_port.h: the port that browsers come to.
#ifndef DCH_WEB_WEB_PORT_H
#define DCH_WEB_WEB_PORT_H

#include <optional>
#include <string>
#include <string_view>

#include "dch/net/descriptor.h"

namespace dch {

// An address of the machine and a port of it.
struct WebAddress {
  std::string address;  // without brackets
  int port = 0;         // 0: any free one

  // "127.0.0.1:1980" or "[::1]:1980".
  std::string text() const;
  bool operator==(const WebAddress&) const = default;
};

// Reads what text() writes; nothing for other texts.
std::optional<WebAddress> parseWebAddress(std::string_view text);

struct WebPort {
  WebAddress address;  // with the port that was taken
  Descriptor listener;
};

// Listens. Throws std::runtime_error, which says what cannot be had and why.
WebPort openWebPort(const WebAddress& address);

}  // namespace dch

#endif  // DCH_WEB_WEB_PORT_H
