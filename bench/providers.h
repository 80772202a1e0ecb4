// providers.h: several providers that send at once.
#ifndef BENCH_PROVIDERS_H
#define BENCH_PROVIDERS_H

#include <chrono>
#include <functional>
#include <list>

#include "bench/exchange_client.h"

class Providers {
 public:
  // `connect` runs in the process of each.
  Providers(int count, const std::function<Exchange(int number)>& connect) {
    for (int i = 0; i < count; ++i) _clients.emplace_back([&connect, i] { return connect(i); });
  }

  // `rows` of all of them together.
  std::chrono::nanoseconds run(int rows) {
    const auto start = std::chrono::steady_clock::now();
    for (ExchangeClient& client : _clients) client.start(rows / static_cast<int>(_clients.size()));
    for (ExchangeClient& client : _clients) client.finish();
    return std::chrono::steady_clock::now() - start;
  }

 private:
  std::list<ExchangeClient> _clients;
};

#endif  // BENCH_PROVIDERS_H
