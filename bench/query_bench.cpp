// What questions to the catalogue cost the providers: the latency of their rows while others ask,
// and while nobody does. 200 applications of 20 attributes are registered, 8 provider processes
// send as fast as they are answered, and zordc asks for the applications and for the attributes of
// one, ten times a second each unless an answer takes longer. The figure that counts is the ratio
// of the medians at the end.
//   query_bench [ROUNDS [SECONDS]]: 5 rounds of both sides, 2 seconds a side
#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <list>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "bench/latencies.h"
#include "bench/shared_count.h"
#include "bench/sides.h"
#include "bench/worker.h"
#include "dch/testkit/server_process.h"
#include "zordchcl/zordchcl.h"

namespace {

using Clock = std::chrono::steady_clock;
using Microseconds = std::chrono::duration<float, std::micro>;

constexpr int providers = 8;

using LatenciesOfProviders = std::array<Latencies, providers>;

void require(bool good, const char* what) {
  if (good) return;
  std::fprintf(stderr, "query_bench: %s failed\n", what);
  std::exit(1);
}

std::string applicationName(int number) {
  return "APPLICATION" + std::to_string(1000 + number);
}

void registerApplications() {
  for (int number = 0; number < 200; ++number) {
    std::string text = "appl:" + applicationName(number) + ",KEY;help:one of many;";
    for (int group = 0; group < 4; ++group) {
      text += "group:group" + std::to_string(group) + ';';
      for (int i = 0; i < 5; ++i)
        text += "attr:attribute" + std::to_string(i) + ",D,96,what this attribute counts;";
    }
    ZORA_Long status = 1;
    require(dp_register(&status, text.c_str()) == 0 && status == 0, "dp_register");
  }
}

void sendRows(int provider, int seconds, Latencies* latencies) {
  ZORA_Long status = 1, handle = 0;
  const std::string name = applicationName(provider);
  require(dp_online(&status, &handle, name.c_str(), "group0", "host") == 0 && status == 0,
          "dp_online");
  const auto end = Clock::now() + std::chrono::seconds(seconds);
  while (Clock::now() < end) {
    char* row = nullptr;
    ZORA_Long size = 0;
    dp_formatData(&status, &row, &size, "attribute0", "a value", 7, 'D');
    constexpr short sampleType = 17;
    const auto start = Clock::now();
    const int result = dp_data(&status, handle, sampleType, &row);
    latencies->add(Microseconds(Clock::now() - start).count());
    require(result == 0 && status == 0, "dp_data");
  }
}

// Runs zordc until it is killed itself; counts the runs that were answered. The pause keeps this a
// measure of the server: programs that start without end take both cores of a small machine.
void ask(const Process::Arguments& arguments, SharedCount* answered) {
  for (;;) {
    if (Process(ZORDC_PATH, arguments).finish().exitStatus == 0) answered->add();
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
  }
}

struct Percentiles {
  float p50, p99;
  std::size_t rows;
};

// One side of a round: all providers for that long; their rows together.
Percentiles measure(int seconds, LatenciesOfProviders* latencies) {
  std::list<Worker> processes;
  for (int i = 0; i < providers; ++i) {
    Latencies& own = (*latencies)[static_cast<std::size_t>(i)];
    own.count = 0;
    processes.emplace_back([&own, i, seconds] { sendRows(i, seconds, &own); });
  }
  for (Worker& process : processes) require(process.succeeded(), "a provider");
  LatencySummary all;
  for (const Latencies& own : *latencies) all.add(own);
  return {all.quantile(0.5), all.quantile(0.99), all.count()};
}

Percentiles measureBesideQuestions(int seconds, LatenciesOfProviders* latencies, SharedCount* apps,
                                   SharedCount* attrs) {
  const Worker first([&] { ask({"apps"}, apps); });
  const Worker second([&] { ask({"attrs", "APPLICATION1100"}, attrs); });
  return measure(seconds, latencies);
}

}  // namespace

int main(int argc, char** argv) {
  const int rounds = argc > 1 ? std::atoi(argv[1]) : 5;
  const int seconds = argc > 2 ? std::atoi(argv[2]) : 2;
  require(rounds > 0 && seconds > 0, "reading ROUNDS and SECONDS");
  dch::testkit::ServerProcess server;
  setenv("ZORA_DCH_ADDR", "127.0.0.1", 1);
  setenv("ZORA_DCH_PORT", std::to_string(server.port()).c_str(), 1);
  setenv("ZORA_DCH_TIMEOUT", "10", 1);
  // In a process of its own, so that the library starts anew in each provider.
  require(Worker(registerApplications).succeeded(), "registering");

  const SharedMemory<LatenciesOfProviders> latencies;
  SharedCount apps, attrs;
  std::vector<double> quiet, busy;
  for (int round = 0; round < rounds; ++round) {
    const Percentiles without = measure(seconds, &*latencies);
    const Percentiles with = measureBesideQuestions(seconds, &*latencies, &apps, &attrs);
    std::printf(
        "without: %7zu rows, p50 %5.0f us, p99 %5.0f us   with: %7zu rows, p50 %5.0f us, p99 %5.0f "
        "us\n",
        without.rows, without.p50, without.p99, with.rows, with.p50, with.p99);
    quiet.push_back(without.p99);
    busy.push_back(with.p99);
  }
  require(attrs.value() > 0, "asking beside the providers");
  std::printf("answered: %d times apps, %d times attrs\n", static_cast<int>(apps.value()),
              static_cast<int>(attrs.value()));
  printFigure("p99 of 8 providers, with catalogue questions / without",
              median(busy) / median(quiet));
}
