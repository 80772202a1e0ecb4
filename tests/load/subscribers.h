// subscribers.h: the subscribers of the load: those that read every row, and those that never do.
#ifndef TESTS_LOAD_SUBSCRIBERS_H
#define TESTS_LOAD_SUBSCRIBERS_H

#include <atomic>
#include <chrono>
#include <cstdint>
#include <thread>
#include <vector>

#include "tests/support/process.h"

namespace load {

// What became of the rows that were acknowledged, summed over all readers.
struct Delivery {
  std::uint64_t expected = 0;
  std::uint64_t received = 0;
  std::uint64_t doubled = 0;        // came twice, or after a later row of the same source
  std::uint64_t droppedUnread = 0;  // by a reader's own socket, because that was full
  std::uint64_t lost = 0;           // none of the above
};

// Subscriptions made and read with the exported functions. One thread serves all of them: epoll
// says who has a row, dc_waitOnData takes it.
class Readers {
 public:
  // Returns when the DCH knows all of them. Throws std::runtime_error.
  explicit Readers(int count);
  ~Readers();
  Readers(const Readers&) = delete;
  Readers& operator=(const Readers&) = delete;

  // Waits until every row that was acknowledged has come or was dropped, at most until none has
  // come for twenty seconds, and counts. To be called once, when no more rows are sent.
  Delivery finish(const std::vector<std::uint32_t>& acknowledged);

  // The same where the server has died and nobody knows which rows were the last: counts those that
  // are missing between others.
  Delivery finish();

 private:
  struct Reader {
    void* handle;
    int application;
    std::vector<std::uint32_t> lastNumber;  // by source
    std::uint64_t received = 0;
    std::uint64_t doubled = 0;
    std::uint64_t missing = 0;  // between those of a source
  };

  void run();
  void take(Reader* reader);
  void waitUntilQuiet(std::uint64_t expected, std::chrono::milliseconds longestSilence) const;
  std::uint64_t dropped() const;
  void stop();

  std::vector<Reader> _readers;
  int _epoll;
  std::atomic<std::uint64_t> _received{0};
  std::atomic<bool> _failed{false};
  std::atomic<bool> _stopping{false};
  std::thread _thread;
};

// Subscribers in a process of their own that never read, with sockets that are full after a row or
// two, and that are killed without a chance to withdraw.
class DeafSubscribers {
 public:
  // Returns when the DCH knows all of them. Throws std::runtime_error.
  explicit DeafSubscribers(int count);

  // What that process does: returns only when it could not subscribe.
  static int beDeaf(int count);

 private:
  Process _process;
};

}  // namespace load

#endif  // TESTS_LOAD_SUBSCRIBERS_H
