// providers.h: the sources of the load, which number their rows.
#ifndef TESTS_LOAD_PROVIDERS_H
#define TESTS_LOAD_PROVIDERS_H

#include <atomic>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "dch/testkit/kept_rows.h"
#include "zora/zora.h"

namespace load {

// The sources are spread over these applications, which have one attribute group each; so are the
// subscribers.
constexpr int applicationCount = 20;
std::string applicationName(int application);
inline constexpr char groupName[] = "rows";

// What is going on while a row is acknowledged.
enum Phase { allRead, someDeaf, someKilled, phaseCount };

// Microseconds from the call of dp_data to its return, of each phase.
using Latencies = std::vector<std::uint32_t>;

// Registers the applications, takes the sources on line and sends their rows through the exported
// functions, from a few threads. A request that fails ends the sending, but for a row without an
// answer where the server may die: that is sent again until it has one.
class Providers {
 public:
  enum class Server { lives, mayDie };

  Providers(int sourceCount, int threadCount, Server server = Server::lives);
  ~Providers() { stop(); }
  Providers(const Providers&) = delete;
  Providers& operator=(const Providers&) = delete;

  // Returns once all sources are on line. Throws std::runtime_error.
  void goOnline();

  // Sends so many rows in a second, or as many as can be for 0, the sources in turn, until stop().
  void start(double rowsPerSecond);
  void stop();

  void enter(Phase phase) { _phase = phase; }

  // What a request failed with, empty when none did. Any time.
  std::string failure() const;

  // After stop(): the number of the last row that was acknowledged, for each source; all before it
  // were acknowledged too.
  const std::vector<std::uint32_t>& acknowledged() const { return _acknowledged; }
  // Of rows that were answered when they were sent for the first time.
  Latencies latencies(Phase phase) const;
  // After stop(): what the sources of an application know of their rows.
  std::vector<dch::testkit::SourceBook> booksOf(int application) const;

  // How many rows were acknowledged so far. Any time.
  std::uint64_t rows() const { return _rows; }

  static int applicationOf(int source) { return source % applicationCount; }

 private:
  struct Worker {
    std::thread thread;
    Latencies latencies[phaseCount];
  };

  void runEach(void (Providers::*work)(int worker));
  void takeOnline(int worker);
  void sendRows(int worker);
  bool sendRow(int source, std::uint32_t number);
  ZORA_Long sendRowOnce(int source, std::uint32_t number);
  void fail(const std::string& request, int result, ZORA_Long status);

  const int _sourceCount;
  const Server _server;
  std::vector<Worker> _workers;
  std::vector<ZORA_Long> _handles;
  std::vector<std::uint32_t> _acknowledged;
  std::vector<std::map<std::uint32_t, std::uint32_t>> _sends;  // of rows sent again, by source
  std::atomic<std::uint64_t> _rows{0};
  double _rowsPerSecond = 0;
  std::atomic<Phase> _phase{allRead};
  std::atomic<bool> _stopping{false};
  mutable std::mutex _mutex;
  std::string _failure;  // guarded by _mutex
};

}  // namespace load

#endif  // TESTS_LOAD_PROVIDERS_H
