#include "dch/net/answer_batch.h"

#include <cerrno>
#include <cstring>

#include "dch/core/answers.h"

namespace dch {

namespace {

// Has the datagram leave from this address of the machine.
void leaveFrom(std::uint32_t localAddress, msghdr* header) {
  cmsghdr* const item = CMSG_FIRSTHDR(header);
  item->cmsg_level = IPPROTO_IP;
  item->cmsg_type = IP_PKTINFO;
  item->cmsg_len = CMSG_LEN(sizeof(in_pktinfo));
  in_pktinfo details{};
  details.ipi_spec_dst.s_addr = localAddress;
  std::memcpy(CMSG_DATA(item), &details, sizeof details);
}

}  // namespace

AnswerBatch::AnswerBatch(int socket, Counters& counters, const Log& log)
    : _socket(socket),
      _counters(counters),
      _log(log),
      _bytes(new char[byteCapacity]),
      _slots(new Slot[capacity]) {
  for (std::size_t i = 0; i < capacity; ++i) {
    msghdr& header = _headers[i].msg_hdr;
    header.msg_name = &_slots[i].receiver;
    header.msg_namelen = sizeof(sockaddr_in);
    header.msg_iov = &_slots[i].part;
    header.msg_iovlen = 1;
  }
}

void AnswerBatch::add(const Origin& receiver, std::string_view message) noexcept {
  if (_count == capacity || _byteCount + message.size() > byteCapacity) flush();
  Slot& slot = _slots[_count];
  msghdr& header = _headers[_count].msg_hdr;
  slot.origin = receiver;
  slot.receiver = receiver.peer.socketAddress();
  slot.part = {_bytes.get() + _byteCount, message.copy(_bytes.get() + _byteCount, message.size())};
  const bool isAnyAddress = receiver.localAddress == htonl(INADDR_ANY);
  header.msg_control = isAnyAddress ? nullptr : slot.details.data();
  header.msg_controllen = isAnyAddress ? 0 : slot.details.size();
  if (!isAnyAddress) leaveFrom(receiver.localAddress, &header);
  _byteCount += message.size();
  ++_count;
}

void AnswerBatch::flush() noexcept {
  for (std::size_t done = 0; done < _count;) {
    const int sent = sendmmsg(_socket, &_headers[done], static_cast<unsigned>(_count - done),
                              MSG_DONTWAIT | MSG_NOSIGNAL);
    if (sent > 0) {
      done += static_cast<std::size_t>(sent);
    } else if (errno != EINTR) {
      countDroppedAnswer(_slots[done].origin, _counters, _log);
      ++done;
    }
  }
  _count = 0;
  _byteCount = 0;
}

}  // namespace dch
