#include "dch/net/datagram_batch.h"

#include <cerrno>
#include <cstring>
#include <system_error>

#include "dch/net/socket_option.h"

namespace dch {

void DatagramBatch::askForDetails(int socket) {
  setOption(socket, SOL_SOCKET, SO_RXQ_OVFL, 1);
  if (localAddressOf(socket).sin_addr.s_addr == htonl(INADDR_ANY))
    setOption(socket, IPPROTO_IP, IP_PKTINFO, 1);
}

DatagramBatch::DatagramBatch() : _slots(new Slot[capacity]) {
  for (std::size_t i = 0; i < capacity; ++i) {
    Slot& slot = _slots[i];
    slot.part = {slot.bytes.data(), slot.bytes.size()};
    msghdr& header = _headers[i].msg_hdr;
    header.msg_name = &slot.sender;
    header.msg_iov = &slot.part;
    header.msg_iovlen = 1;
    header.msg_control = slot.details.data();
  }
}

std::size_t DatagramBatch::receive(int socket) {
  for (mmsghdr& each : _headers) {
    each.msg_hdr.msg_namelen = sizeof(sockaddr_in);
    each.msg_hdr.msg_controllen = sizeof(Slot::details);
  }
  _thrownAway = 0;
  const int count = recvmmsg(socket, _headers.data(), capacity, MSG_DONTWAIT, nullptr);
  _count = count > 0 ? static_cast<std::size_t>(count) : 0;
  for (std::size_t i = 0; i < _count; ++i) {
    readDetails(i);
    if (i == 0) _thrownAwayBefore = _thrownAway;
  }
  return _count;
}

std::size_t DatagramBatch::byteCount() const {
  std::size_t bytes = 0;
  for (std::size_t i = 0; i < _count; ++i) bytes += _headers[i].msg_len;
  return bytes;
}

Message DatagramBatch::message(std::size_t number, Time receivedAt) const {
  const Slot& slot = _slots[number];
  const bool isCut = (_headers[number].msg_hdr.msg_flags & MSG_TRUNC) != 0;
  return {.bytes = {slot.bytes.data(), _headers[number].msg_len},
          .origin = {.peer = PeerAddress(slot.sender), .localAddress = slot.localAddress},
          .receivedAt = receivedAt,
          .isWhole = !isCut};
}

void DatagramBatch::readDetails(std::size_t number) {
  Slot& slot = _slots[number];
  slot.localAddress = htonl(INADDR_ANY);
  msghdr& header = _headers[number].msg_hdr;
  for (cmsghdr* item = CMSG_FIRSTHDR(&header); item != nullptr; item = CMSG_NXTHDR(&header, item)) {
    if (item->cmsg_level == IPPROTO_IP && item->cmsg_type == IP_PKTINFO) {
      in_pktinfo details;
      std::memcpy(&details, CMSG_DATA(item), sizeof details);
      slot.localAddress = details.ipi_spec_dst.s_addr;
    } else if (item->cmsg_level == SOL_SOCKET && item->cmsg_type == SO_RXQ_OVFL) {
      std::memcpy(&_thrownAway, CMSG_DATA(item), sizeof _thrownAway);
    }
  }
}

}  // namespace dch
