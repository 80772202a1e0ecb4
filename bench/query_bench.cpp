// What questions to the catalogue cost the providers: the latency of their rows while others ask,
// and while nobody does. 200 applications of 20 attributes are registered, 8 provider processes
// send as fast as they are answered, and 4 loops run zordc again and again. The figure that counts
// is the ratio of the medians at the end.
//   query_bench [ROUNDS [SECONDS]]: 5 rounds of both sides, 2 seconds a side
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <list>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "bench/child_process.h"
#include "dch/testkit/server_process.h"
#include "zordchcl/zordchcl.h"

namespace {

using Clock = std::chrono::steady_clock;
using Microseconds = std::chrono::duration<float, std::micro>;

constexpr int providers = 8;
constexpr int maximumRows = 1'000'000;  // of one provider in one side of a round

// What one provider process measured, for the process that started it to read.
struct Latencies {
  int rows;
  int failures;
  std::array<float, maximumRows> microseconds;
};

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
  while (Clock::now() < end && latencies->rows < maximumRows) {
    char* row = nullptr;
    ZORA_Long size = 0;
    dp_formatData(&status, &row, &size, "attribute0", "a value", 7, 'D');
    constexpr short sampleType = 17;
    const auto start = Clock::now();
    const int result = dp_data(&status, handle, sampleType, &row);
    latencies->microseconds[latencies->rows++] = Microseconds(Clock::now() - start).count();
    if (result != 0 || status != 0) ++latencies->failures;
  }
}

// Runs zordc until it is killed itself; counts the runs that were answered. The pause keeps this a
// measure of the server: programs that start without end take both cores of a small machine.
void ask(const std::vector<const char*>& arguments, int* answered) {
  for (;;) {
    ChildProcess run([&] {
      dup2(open("/dev/null", O_WRONLY | O_CLOEXEC), STDOUT_FILENO);
      execv(ZORDC_PATH, const_cast<char* const*>(arguments.data()));
      throw std::runtime_error("zordc cannot be started");
    });
    if (run.succeeded()) ++*answered;
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
  }
}

template <class T>
T* shared(int count) {
  void* const memory =
      mmap(nullptr, sizeof(T) * count, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  require(memory != MAP_FAILED, "mmap");
  return static_cast<T*>(memory);
}

struct Side {
  float p50, p99;
  int rows;
};

// One side of a round: all providers for that long; their rows together.
Side measure(int seconds, Latencies* latencies) {
  std::list<ChildProcess> processes;
  for (int i = 0; i < providers; ++i) {
    latencies[i].rows = latencies[i].failures = 0;
    processes.emplace_back([&, i] { sendRows(i, seconds, &latencies[i]); });
  }
  for (ChildProcess& process : processes) require(process.succeeded(), "a provider");
  std::vector<float> all;
  for (int i = 0; i < providers; ++i) {
    require(latencies[i].rows > 0 && latencies[i].failures == 0, "a provider's row");
    const float* const first = latencies[i].microseconds.data();
    all.insert(all.end(), first, first + latencies[i].rows);
  }
  std::sort(all.begin(), all.end());
  return {all[all.size() / 2], all[all.size() * 99 / 100], static_cast<int>(all.size())};
}

Side measureBesideQuestions(int seconds, Latencies* latencies, int* answered) {
  const std::vector<const char*> applications{"zordc", "apps", nullptr};
  const std::vector<const char*> attributes{"zordc", "attrs", "APPLICATION1100", nullptr};
  const ChildProcess first([&] { ask(applications, &answered[0]); });
  const ChildProcess second([&] { ask(attributes, &answered[1]); });
  return measure(seconds, latencies);
}

float median(std::vector<float> values) {
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
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
  require(ChildProcess(registerApplications).succeeded(), "registering");

  auto* const latencies = shared<Latencies>(providers);
  int* const answered = shared<int>(2);
  std::vector<float> quiet, busy;
  for (int round = 0; round < rounds; ++round) {
    const Side without = measure(seconds, latencies);
    const Side with = measureBesideQuestions(seconds, latencies, answered);
    std::printf(
        "without: %7d rows, p50 %5.0f us, p99 %5.0f us   with: %7d rows, p50 %5.0f us, p99 %5.0f "
        "us\n",
        without.rows, without.p50, without.p99, with.rows, with.p50, with.p99);
    quiet.push_back(without.p99);
    busy.push_back(with.p99);
  }
  std::printf("answered: %d times apps, %d times attrs\n", answered[0], answered[1]);
  std::printf("p99 with questions / without, of the medians: %.2f\n", median(busy) / median(quiet));
}
