// exchange_client.h: one side of a comparison: a process that makes round trips when told to, and
// measures them. Each has a process of its own, because the library knows one DCH a process.
#ifndef BENCH_EXCHANGE_CLIENT_H
#define BENCH_EXCHANGE_CLIENT_H

#include <chrono>
#include <functional>
#include <optional>

#include "bench/worker.h"

// What is exchanged everywhere: a row of one attribute, and an answer that is a status.
constexpr int requestSize = 128;
constexpr int answerSize = 14;

// The row, from dp_formatData; whoever gets it frees it with delete[].
char* buildRow();
// A copy of a row that was built once: no request of the library is made for it.
char* copyRow();

// `roundTrip` is measured and answers whether it went well; `prepare` comes before each, and is
// not.
struct Exchange {
  std::function<void()> prepare;
  std::function<bool()> roundTrip;
};

class ExchangeClient {
 public:
  // `connect` runs in the new process.
  explicit ExchangeClient(const std::function<Exchange()>& connect);
  ~ExchangeClient();

  // The time that this many round trips take together. Throws when one fails.
  std::chrono::nanoseconds run(int roundTrips);
  // The same in two steps, for several clients at once.
  void start(int roundTrips);
  std::chrono::nanoseconds finish();

 private:
  int _commands;  // a socket to the process
  std::optional<Worker> _process;
};

#endif  // BENCH_EXCHANGE_CLIENT_H
