#include "dch/net/local_receivers.h"

#include <linux/inet_diag.h>
#include <linux/netlink.h>
#include <linux/sock_diag.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <cstring>

#include "dch/net/this_machine.h"

namespace dch {

namespace {

constexpr std::uint32_t loopbackInterface = 1;  // through which a machine sends to itself

struct Question {
  nlmsghdr header;
  inet_diag_req_v2 request;
};

// A socket of all addresses sends from this one to those of the same machine.
PeerAddress asSeenFromThisMachine(PeerAddress sender) {
  if (sender.address == htonl(INADDR_ANY)) sender.address = htonl(INADDR_LOOPBACK);
  return sender;
}

}  // namespace

LocalReceivers::LocalReceivers(const PeerAddress& sender)
    : _sendsFromAll(sender.address == htonl(INADDR_ANY)),
      _sender(asSeenFromThisMachine(sender)),
      _socket(socket(AF_NETLINK, SOCK_RAW | SOCK_NONBLOCK | SOCK_CLOEXEC, NETLINK_SOCK_DIAG)) {}

// A system that cannot look for sockets answers that there is none: it has to find the sender
// first.
bool LocalReceivers::isGone(const PeerAddress& receiver) {
  return isLocal(receiver) && find(receiver) == Found::no && find(_sender) == Found::yes;
}

bool LocalReceivers::isLocal(const PeerAddress& receiver) const {
  return receiver.isLoopback() || receiver.address == _sender.address ||
         (_sendsFromAll && isOfThisMachine(receiver));
}

// To an address of its own a machine sends from that one.
std::uint32_t LocalReceivers::senderFor(const PeerAddress& receiver) const {
  return _sendsFromAll && !receiver.isLoopback() ? receiver.address : _sender.address;
}

LocalReceivers::Found LocalReceivers::find(const PeerAddress& receiver) {
  return ask(receiver) ? readAnswer() : Found::unknown;
}

bool LocalReceivers::ask(const PeerAddress& receiver) {
  Question question{};
  question.header.nlmsg_len = sizeof question;
  question.header.nlmsg_type = SOCK_DIAG_BY_FAMILY;
  question.header.nlmsg_flags = NLM_F_REQUEST;
  question.header.nlmsg_seq = ++_lastNumber;
  question.request.sdiag_family = AF_INET;
  question.request.sdiag_protocol = IPPROTO_UDP;
  // Looked for as for a datagram that comes in, so from the sender to the receiver.
  inet_diag_sockid& id = question.request.id;
  id.idiag_src[0] = senderFor(receiver);
  id.idiag_sport = _sender.port;
  id.idiag_dst[0] = receiver.address;
  id.idiag_dport = receiver.port;
  id.idiag_if = loopbackInterface;
  for (auto& each : id.idiag_cookie) each = INET_DIAG_NOCOOKIE;
  return send(_socket.get(), &question, sizeof question, MSG_DONTWAIT) == sizeof question;
}

// The system has answered when it has taken the question.
LocalReceivers::Found LocalReceivers::readAnswer() {
  alignas(nlmsghdr) std::array<char, 1'024> bytes;
  for (;;) {
    const ssize_t size = recv(_socket.get(), bytes.data(), bytes.size(), MSG_DONTWAIT);
    if (size < static_cast<ssize_t>(sizeof(nlmsghdr))) return Found::unknown;
    nlmsghdr header;
    std::memcpy(&header, bytes.data(), sizeof header);
    if (header.nlmsg_seq != _lastNumber) continue;
    if (header.nlmsg_type == SOCK_DIAG_BY_FAMILY) return Found::yes;
    nlmsgerr failure;
    if (header.nlmsg_type != NLMSG_ERROR || size < ssize_t{NLMSG_HDRLEN} + ssize_t{sizeof failure})
      return Found::unknown;
    std::memcpy(&failure, bytes.data() + NLMSG_HDRLEN, sizeof failure);
    return failure.error == -ENOENT ? Found::no : Found::unknown;
  }
}

}  // namespace dch
