// datagram_queue.h: the least that a server of two threads can do, to compare the library's with:
// one thread receives, another one works, and four datagrams fit between them.
#ifndef BENCH_DATAGRAM_QUEUE_H
#define BENCH_DATAGRAM_QUEUE_H

#include <netinet/in.h>

#include <array>
#include <condition_variable>
#include <cstddef>
#include <mutex>

struct Datagram {
  std::array<char, 4096> bytes;
  std::size_t size = 0;
  sockaddr_in sender{};
};

class DatagramQueue {
 public:
  // Receives for ever, and puts what comes into the queue.
  [[noreturn]] void receiveFrom(int descriptor);
  // Waits for the next datagram.
  void take(Datagram* datagram);

 private:
  static constexpr std::size_t capacity = 4;

  std::mutex _mutex;
  std::condition_variable _notFull, _notEmpty;
  std::array<Datagram, capacity> _slots;
  std::size_t _first = 0, _count = 0;
};

#endif  // BENCH_DATAGRAM_QUEUE_H
