#include "dch/net/push_socket.h"

#include <linux/errqueue.h>
#include <linux/filter.h>
#include <netinet/ip.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <new>
#include <string>

#include "dch/net/socket_option.h"
#include "suite/sockets.h"
#include "zordchcl/messages.h"

namespace dch {

namespace {

// A length word and a status.
constexpr std::size_t answerBytes =
    ZOR0_LENGTH_WORD_SIZE + ZOR0_FIELD_HEADER_SIZE + sizeof(ZORA_Long);

// Nobody else has their turn while so many are read.
constexpr int mostAtOnce = 32;

// Lets the system throw away what is no answer to a row, by its length. Where it cannot, those
// datagrams are read and thrown away.
void takeAnswersAlone(int descriptor) {
  constexpr std::uint32_t udpHeaderBytes = 8, all = 0xffff, nothing = 0;
  sock_filter program[] = {
      BPF_STMT(BPF_LD | BPF_W | BPF_LEN, 0),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, udpHeaderBytes + answerBytes, 0, 1),
      BPF_STMT(BPF_RET | BPF_K, all),
      BPF_STMT(BPF_RET | BPF_K, nothing),
  };
  const sock_fprog filter{std::size(program), program};
  setsockopt(descriptor, SOL_SOCKET, SO_ATTACH_FILTER, &filter, sizeof filter);
}

void bindTo(int descriptor, in_addr address) {
  sockaddr_in local{};
  local.sin_family = AF_INET;
  local.sin_addr = address;
  // With this the system keeps the errors that come back for a datagram, and for whom it was.
  setOption(descriptor, IPPROTO_IP, IP_RECVERR, 1);
  if (bind(descriptor, reinterpret_cast<const sockaddr*>(&local), sizeof local) != 0)
    throwSystemError(std::string("cannot bind a socket to ") + PeerAddress(local).text().data());
}

Descriptor openAt(in_addr address) {
  Descriptor opened(socket(AF_INET, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
  if (!opened.isOpen()) throwSystemError("cannot open the push socket");
  takeAnswersAlone(opened.get());
  bindTo(opened.get(), address);
  return opened;
}

// The next datagram that came back with an error: who it was for, and the error number.
bool nextError(int descriptor, PeerAddress* receiver, int* error) {
  sockaddr_in address{};
  alignas(cmsghdr) char control[512];
  msghdr header{};
  header.msg_name = &address;
  header.msg_namelen = sizeof address;
  header.msg_control = control;
  header.msg_controllen = sizeof control;
  if (recvmsg(descriptor, &header, MSG_ERRQUEUE | MSG_DONTWAIT) < 0) return false;
  *receiver = PeerAddress(address);
  *error = 0;
  for (cmsghdr* item = CMSG_FIRSTHDR(&header); item != nullptr; item = CMSG_NXTHDR(&header, item)) {
    if (item->cmsg_level != IPPROTO_IP || item->cmsg_type != IP_RECVERR) continue;
    sock_extended_err details;
    std::memcpy(&details, CMSG_DATA(item), sizeof details);
    *error = static_cast<int>(details.ee_errno);
  }
  return true;
}

}  // namespace

PushSocket::PushSocket(in_addr address)
    : _descriptor(openAt(address)),
      _localReceivers(PeerAddress(localAddressOf(_descriptor.get()))) {}

bool PushSocket::push(std::string_view message, const PeerAddress& receiver) {
  const sockaddr_in address = receiver.socketAddress();
  if (trySend(message, address)) return true;
  if (errno == EAGAIN || errno == EWOULDBLOCK || errno == ENOBUFS) return false;
  // The error may be that of an earlier datagram to someone else: the system reports it on the next
  // call, whatever that is for.
  collectGone();
  return trySend(message, address);
}

void PushSocket::pushToAll(std::string_view message, std::span<const PeerAddress> receivers,
                           std::span<bool> taken) {
  while (!receivers.empty()) {
    const std::size_t sent = sendTogether(message, receivers);
    std::fill_n(taken.begin(), sent, true);
    receivers = receivers.subspan(sent);
    taken = taken.subspan(sent);
    if (receivers.empty()) return;
    // The system does not say what it has against the next one, if anything.
    taken.front() = push(message, receivers.front());
    receivers = receivers.subspan(1);
    taken = taken.subspan(1);
  }
}

// Returns how many the system took, from the first one on.
std::size_t PushSocket::sendTogether(std::string_view message,
                                     std::span<const PeerAddress> receivers) {
  constexpr std::size_t most = 64;
  std::array<mmsghdr, most> headers;
  std::array<sockaddr_in, most> addresses;
  iovec part{const_cast<char*>(message.data()), message.size()};
  const std::size_t count = std::min(receivers.size(), most);
  for (std::size_t i = 0; i < count; ++i) {
    addresses[i] = receivers[i].socketAddress();
    headers[i] = {};
    headers[i].msg_hdr.msg_name = &addresses[i];
    headers[i].msg_hdr.msg_namelen = sizeof addresses[i];
    headers[i].msg_hdr.msg_iov = &part;
    headers[i].msg_hdr.msg_iovlen = 1;
  }
  const int sent =
      sendmmsg(_descriptor.get(), headers.data(), static_cast<unsigned>(count), MSG_DONTWAIT);
  return sent > 0 ? static_cast<std::size_t>(sent) : 0;
}

void PushSocket::receive(const Receive& receive) {
  collectGone();
  std::array<char, answerBytes> bytes;
  for (int i = 0; i < mostAtOnce; ++i) {
    sockaddr_in sender{};
    socklen_t length = sizeof sender;
    const ssize_t size =
        recvfrom(_descriptor.get(), bytes.data(), bytes.size(), MSG_DONTWAIT | MSG_TRUNC,
                 reinterpret_cast<sockaddr*>(&sender), &length);
    if (size < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) return;
    if (size == ssize_t{answerBytes})
      receive({{bytes.data(), bytes.size()}, {.peer = PeerAddress(sender)}});
  }
}

void PushSocket::look(const PeerAddress& receiver) {
  if (_localReceivers.isGone(receiver)) noteGone(receiver);
}

void PushSocket::takeGone(std::vector<PeerAddress>* gone) {
  collectGone();
  gone->swap(_gone);
}

void PushSocket::collectGone() {
  PeerAddress receiver;
  int error;
  while (nextError(_descriptor.get(), &receiver, &error)) {
    if (error == ECONNREFUSED) noteGone(receiver);
  }
}

void PushSocket::noteGone(const PeerAddress& receiver) {
  try {
    _gone.push_back(receiver);
  } catch (const std::bad_alloc&) {
    // To throw would cost everybody the server.
  }
}

std::uint16_t PushSocket::port() const {
  return ZOR0_RetrieveSockPort(_descriptor.get());
}

bool PushSocket::trySend(std::string_view message, const sockaddr_in& to) {
  return sendto(_descriptor.get(), message.data(), message.size(), MSG_DONTWAIT,
                reinterpret_cast<const sockaddr*>(&to), sizeof to) >= 0;
}

}  // namespace dch
