// local_receivers.h: whether somebody on this machine receives datagrams at an address.
#ifndef DCH_NET_LOCAL_RECEIVERS_H
#define DCH_NET_LOCAL_RECEIVERS_H

#include <cstdint>

#include "dch/core/peer_address.h"
#include "dch/net/descriptor.h"

namespace dch {

// Asks the system. Where that may not be asked everybody is there. One thread.
class LocalReceivers {
 public:
  // `sender` is the address and port of a socket of this process, from which they are sent
  // datagrams.
  explicit LocalReceivers(const PeerAddress& sender);

  // Whether a datagram to `receiver` would surely find nobody. Of other machines that is not known.
  bool isGone(const PeerAddress& receiver);

 private:
  enum class Found { yes, no, unknown };

  bool isLocal(const PeerAddress& receiver) const;
  std::uint32_t senderFor(const PeerAddress& receiver) const;
  Found find(const PeerAddress& receiver);
  bool ask(const PeerAddress& receiver);
  Found readAnswer();

  const bool _sendsFromAll;  // addresses of the machine
  const PeerAddress _sender;
  const Descriptor _socket;
  std::uint32_t _lastNumber = 0;  // of a question
};

}  // namespace dch

#endif  // DCH_NET_LOCAL_RECEIVERS_H
