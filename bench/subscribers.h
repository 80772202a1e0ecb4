// subscribers.h: sockets that rows are pushed to.
#ifndef BENCH_SUBSCRIBERS_H
#define BENCH_SUBSCRIBERS_H

#include <chrono>
#include <functional>
#include <optional>
#include <vector>

#include "bench/shared_count.h"
#include "bench/worker.h"
#include "tests/support/sockets.h"

class Subscribers {
 public:
  explicit Subscribers(int count) : _sockets(static_cast<std::size_t>(count)) {}

  const std::vector<DatagramSocket>& sockets() const { return _sockets; }

  // Asks the server at that port for the rows of the group "group". Returns before it has taken
  // that; what is asked of it next is answered after that.
  void subscribe(int port, const std::string& application) const;

  // Counts what arrives, in a process of its own.
  void startCounting() {
    _process.emplace([this] { count(); });
  }
  std::uint64_t received() const { return _received.value(); }

  // `publish` sends that many rows to each.
  std::chrono::nanoseconds run(int deliveries, const std::function<void(int rows)>& publish);

 private:
  [[noreturn]] void count();

  std::vector<DatagramSocket> _sockets;
  SharedCount _received;
  std::optional<Worker> _process;
};

#endif  // BENCH_SUBSCRIBERS_H
