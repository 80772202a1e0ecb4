// port_choice.h: the rule by which the DCH gets its port.
//
// The configured port is ZORA_DCH_PORT, else product setting 22, else 1919. As a rule it alone will
// do. There are candidates instead, and the first free one is taken, in two cases:
//
//   product setting 0 has a value            configured port + i × offset,          i = 0 to 10
//   else, an instance on the default port    46300 + configured port + i × offset,  i = 1 to 10
//
// The offset is product setting 23, else 1000. No candidate is above 65535.
//
// ipcSock::allocateDCHport chooses by this rule. It pauses before, tells each step in the trace,
// publishes a candidate that was taken, so that later clients find it, and ends the process when
// there is no port. Here is the rule without all that. Nothing here throws.
#ifndef ZORDSOCK_PORT_CHOICE_H
#define ZORDSOCK_PORT_CHOICE_H

#include <netinet/in.h>

#include "suite/sockets.h"
#include "zordsock/settings.h"

namespace zordsock {

constexpr int highestMultiplier = 10;

// The configured port, where `port` is the value of ZORA_DCH_PORT, or null. What is not a number
// counts as 0, and a number is cut to 16 bits.
unsigned short configuredPort(const char* port);

// What the choice goes by.
struct PortRule {
  unsigned short configuredPort;
  bool isInstance;              // the process has an instance name
  bool startsAtConfiguredPort;  // product setting 0 has a value

  // Whether there are candidates; else only the configured port will do.
  bool hasCandidates() const {
    return (isInstance && configuredPort == defaultPort) || startsAtConfiguredPort;
  }
};

// The rule of this process.
PortRule readPortRule(unsigned short configuredPort);

// A port that was tried, with the two sockets bound to it, -1 for one that could not be had.
struct PortChoice {
  // Wide enough for any offset. One that is below 0 can lead below port 0: 16 bits of it are bound.
  long long port = 0;
  long long offset = 0;  // i × offset; 0 for the configured port alone
  int multiplier = 0;    // i
  int datagramSocket = -1;
  int streamSocket = -1;
  int datagramError = 0;  // the system's error number, 0 for none
  int streamError = 0;
  sockaddr_in address = {};  // of the socket that was bound last

  // 0 stands for a socket that is not open.
  bool isBound() const { return datagramSocket >= 1 && streamSocket >= 1; }
  bool isInUse() const;  // for both kinds
};

// What whoever asks for a port does at each step, on the same thread.
class PortChoiceSteps {
 public:
  // Before the first candidate: product setting 23, or 0.
  virtual void readOffset(int) {}
  virtual void aboutToOpen() {}
  // Opens and binds a socket, as ZOR0_OpenLocalSocket does, which is called unless this is
  // overridden.
  virtual int open(ZOR0_SocketKind kind, unsigned short port, ZOR0_SocketFlag flag,
                   sockaddr_in* address, int* error);
  // A socket is bound to `choice.address`, or could not be: then `descriptor` is -1.
  virtual void opened(ZOR0_SocketKind, [[maybe_unused]] int descriptor, const PortChoice&) {}
  // A port that could not be had with both kinds. Closes the socket that could.
  virtual void failed(const PortChoice& choice);

 protected:
  ~PortChoiceSteps() = default;
};

// Opens both sockets, those of candidates with ZOR0_SOCKET_REUSE.
// Returns the port that was had; the sockets are the caller's. When there was none, it is the last
// one that was tried, if any, and not bound.
PortChoice choosePort(const PortRule& rule, PortChoiceSteps& steps);
PortChoice choosePort(const PortRule& rule);

}  // namespace zordsock

#endif  // ZORDSOCK_PORT_CHOICE_H
