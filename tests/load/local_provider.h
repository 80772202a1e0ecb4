// local_provider.h: a provider of the server's own machine, while the server has much else to do.
#ifndef TESTS_LOAD_LOCAL_PROVIDER_H
#define TESTS_LOAD_LOCAL_PROVIDER_H

#include <atomic>
#include <chrono>
#include <cstdint>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>

#include "dch/testkit/clients.h"
#include "dch/testkit/messages.h"
#include "tests/load/measures.h"

namespace load {

// A row every 10 ms, from one source.
class LocalProvider {
 public:
  explicit LocalProvider(int port) : _client(port) {
    _client.ask(dch::testkit::registerMessage());
    _handle =
        dch::testkit::handleOf(_client.ask(dch::testkit::onlineMessage("HOSTMON", "load", "hub")));
    if (_handle == 0) throw std::runtime_error("a source of the hub cannot go on line");
    _thread = std::thread([this] { send(); });
  }
  ~LocalProvider() {
    _isEnding = true;
    _thread.join();
  }

  // Since it was asked last. Throws std::runtime_error when a row was not acknowledged.
  Quantiles takeLatencies() {
    const std::lock_guard lock(_mutex);
    if (_hasFailed)
      throw std::runtime_error("a row of the hub's own provider was not acknowledged");
    return quantilesOf(std::exchange(_latencies, {}));
  }

 private:
  void send() {
    const std::string row = dch::testkit::dataMessage(_handle, {{"load1", 'D', "0.42"}});
    while (!_isEnding) {
      const auto start = std::chrono::steady_clock::now();
      const bool isKept = dch::testkit::statusOf(_client.ask(row)) == 0;
      const auto taken = std::chrono::duration_cast<std::chrono::microseconds>(
          std::chrono::steady_clock::now() - start);
      {
        const std::lock_guard lock(_mutex);
        _latencies.push_back(static_cast<std::uint32_t>(taken.count()));
        _hasFailed = _hasFailed || !isKept;
      }
      std::this_thread::sleep_until(start + std::chrono::milliseconds(10));
    }
  }

  const dch::testkit::UdpClient _client;
  ZORA_Long _handle = 0;
  std::mutex _mutex;
  Latencies _latencies;
  bool _hasFailed = false;
  std::atomic<bool> _isEnding = false;
  std::thread _thread;
};

}  // namespace load

#endif  // TESTS_LOAD_LOCAL_PROVIDER_H
