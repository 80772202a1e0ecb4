#include "bench/datagram_queue.h"

#include <sys/socket.h>

#include <algorithm>

namespace {

// What is not in use need not be copied.
void copyDatagram(const Datagram& from, Datagram* to) {
  std::copy_n(from.bytes.begin(), from.size, to->bytes.begin());
  to->size = from.size;
  to->sender = from.sender;
}

}  // namespace

void DatagramQueue::receiveFrom(int descriptor) {
  Datagram datagram;
  for (;;) {
    socklen_t senderLength = sizeof datagram.sender;
    const ssize_t size = recvfrom(descriptor, datagram.bytes.data(), datagram.bytes.size(), 0,
                                  reinterpret_cast<sockaddr*>(&datagram.sender), &senderLength);
    if (size <= 0) continue;
    datagram.size = static_cast<std::size_t>(size);
    {
      std::unique_lock lock(_mutex);
      _notFull.wait(lock, [this] { return _count < capacity; });
      copyDatagram(datagram, &_slots[(_first + _count) % capacity]);
      ++_count;
    }
    _notEmpty.notify_one();
  }
}

void DatagramQueue::take(Datagram* datagram) {
  {
    std::unique_lock lock(_mutex);
    _notEmpty.wait(lock, [this] { return _count > 0; });
    copyDatagram(_slots[_first], datagram);
    _first = (_first + 1) % capacity;
    --_count;
  }
  _notFull.notify_one();
}
