// zordchd_load [--seconds N]: 2,000 sources and 500 subscribers against one zordchd for N seconds
// (20 when not given). In turns 100 more subscribers come that never read, and are killed. Prints
// what it measured, and fails when a row was lost, when zordchd grew, or when it was slowed down.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>

#include "dch/testkit/server_process.h"
#include "tests/load/measures.h"
#include "tests/load/providers.h"
#include "tests/load/subscribers.h"
#include "zordchcl/zordchcl.h"

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define WITH_SANITIZER 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define WITH_SANITIZER 1
#endif
#endif

namespace load {
namespace {

using Clock = std::chrono::steady_clock;
using Seconds = std::chrono::duration<double>;

constexpr int sourceCount = 2000;
constexpr int providerThreads = 4;
constexpr int readerCount = 500;
constexpr int deafCount = 100;
constexpr double rowsPerSecond = 500;
// A sanitizer's own records come and go with every allocation.
#ifdef WITH_SANITIZER
constexpr long toleratedGrowthKilobytes = 32 * 1024;
#else
constexpr long toleratedGrowthKilobytes = 512;
#endif

// The highest use before and after zordchd has had its time to settle.
struct Growth {
  Usage settled;
  Usage later;

  void add(const Usage& usage, bool isSettled) {
    Usage& highest = isSettled ? later : settled;
    highest.residentKilobytes = std::max(highest.residentKilobytes, usage.residentKilobytes);
    highest.descriptors = std::max(highest.descriptors, usage.descriptors);
  }
};

// Runs the phases in turns until the time is over.
Growth runPhases(Providers* providers, pid_t server, double seconds) {
  // A cycle of the short run still has to leave zordchd to itself for a moment.
  const Seconds cycle(std::clamp(seconds / 4, 2.0, 20.0));
  const Seconds settling(std::min(60.0, seconds / 4));
  const Clock::time_point start = Clock::now();
  std::optional<DeafSubscribers> deaf;
  Growth growth;
  for (Seconds time{0}; time.count() < seconds && providers->failure().empty();
       time = Clock::now() - start) {
    const double place = time / cycle - static_cast<int>(time / cycle);
    const Phase phase = place < 0.4 ? allRead : place < 0.8 ? someDeaf : someKilled;
    if (phase == someDeaf && !deaf) deaf.emplace(deafCount);
    if (phase != someDeaf) deaf.reset();
    providers->enter(phase);
    growth.add(usageOf(server), time > settling);
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }
  return growth;
}

void printLatency(const char* when, const Quantiles& latency) {
  std::printf("  %-38s %9.2f %9.2f %9.2f %9zu\n", when, latency.p50, latency.p99, latency.longest,
              latency.count);
}

int failures = 0;

void check(bool isGood, const std::string& what) {
  if (isGood) return;
  ++failures;
  std::printf("FAILED: %s\n", what.c_str());
}

void reportLatencies(const Providers& providers) {
  const Quantiles without = quantilesOf(providers.latencies(allRead));
  const Quantiles with = quantilesOf(providers.latencies(someDeaf));
  const Quantiles after = quantilesOf(providers.latencies(someKilled));
  std::printf("rows acknowledged                       p50 in ms       p99   longest      rows\n");
  printLatency("500 subscribers that read", without);
  printLatency("and 100 that do not", with);
  printLatency("the 100 just killed", after);
  // A subscriber that held zordchd up would do so for every row. What the other programs of this
  // machine do to a single row is not zordchd's.
  for (const Quantiles& other : {with, after}) {
    check(other.p50 <= 2 * without.p50 + 1, "subscribers that do not read slow half of the rows");
    check(other.p99 <= 3 * without.p99 + 100, "subscribers that do not read slow some of the rows");
  }
}

void reportDelivery(const Delivery& delivery) {
  std::printf("rows for the subscribers that read\n");
  std::printf("  acknowledged, times subscribers        %9llu\n",
              static_cast<unsigned long long>(delivery.expected));
  std::printf("  received                               %9llu\n",
              static_cast<unsigned long long>(delivery.received));
  std::printf("  dropped by a subscriber's full socket  %9llu\n",
              static_cast<unsigned long long>(delivery.droppedUnread));
  std::printf("  lost                                   %9llu\n",
              static_cast<unsigned long long>(delivery.lost));
  std::printf("  doubled or out of order                %9llu\n",
              static_cast<unsigned long long>(delivery.doubled));
  check(delivery.expected > 0, "no row was acknowledged");
  check(delivery.lost == 0, "rows were acknowledged and lost");
  check(delivery.doubled == 0, "rows came twice or out of order");
}

void reportGrowth(const Growth& growth, double settlingSeconds) {
  const long kilobytes = growth.later.residentKilobytes - growth.settled.residentKilobytes;
  std::printf("zordchd                           first %3.0f s  later  growth (tolerated)\n",
              settlingSeconds);
  std::printf("  resident kilobytes              %11ld %6ld %7ld (%ld)\n",
              growth.settled.residentKilobytes, growth.later.residentKilobytes, kilobytes,
              toleratedGrowthKilobytes);
  std::printf("  descriptors                     %11d %6d %7d (0)\n", growth.settled.descriptors,
              growth.later.descriptors, growth.later.descriptors - growth.settled.descriptors);
  check(kilobytes <= toleratedGrowthKilobytes, "the memory of zordchd grew");
  check(growth.later.descriptors <= growth.settled.descriptors, "zordchd leaves descriptors open");
}

int run(double seconds) {
#ifdef WITH_SANITIZER
  // Memory that was freed is not to be kept for long: it is zordchd's use that is looked at.
  const char* const before = std::getenv("ASAN_OPTIONS");
  const std::string options = before != nullptr ? std::string(before) + ":" : "";
  setenv("ASAN_OPTIONS",
         (options + "quarantine_size_mb=1:thread_local_quarantine_size_kb=16").c_str(), 1);
#endif
  dch::testkit::ServerProcess server({"--verbose"});
  pointLibraryTo(server.port());
  DCH_api_init();
  std::printf(
      "%d sources (dp_data on %d threads), %.0f rows a second, %d subscribers\n"
      "(dc_waitOnData, on the sockets that epoll says are ready), for %.0f s\n",
      sourceCount, providerThreads, rowsPerSecond, readerCount, seconds);
  Providers providers(sourceCount, providerThreads);
  providers.goOnline();
  Readers readers(readerCount);
  providers.start(rowsPerSecond);
  const Growth growth = runPhases(&providers, server.processId(), seconds);
  providers.stop();
  check(providers.failure().empty(), "a row was not acknowledged: " + providers.failure());
  const Delivery delivery = readers.finish(providers.acknowledged());
  reportLatencies(providers);
  reportDelivery(delivery);
  reportGrowth(growth, std::min(60.0, seconds / 4));
  check(server.standardError().find(" has lost ") == std::string::npos,
        "zordchd could not hand rows to the system");
  std::printf("%s\n", failures == 0 ? "all is well" : "not all is well");
  return failures == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}

}  // namespace
}  // namespace load

int main(int argc, char** argv) {
  try {
    load::raiseDescriptorLimit(load::readerCount);
    if (argc == 3 && std::strcmp(argv[1], "--deaf") == 0) {
      DCH_api_init();
      return load::DeafSubscribers::beDeaf(std::atoi(argv[2]));
    }
    const bool hasSeconds = argc == 3 && std::strcmp(argv[1], "--seconds") == 0;
    const double seconds = hasSeconds ? std::atof(argv[2]) : 20;
    if ((argc != 1 && !hasSeconds) || seconds < 10) {
      std::fprintf(stderr, "Usage: zordchd_load [--seconds N], N at least 10\n");
      return EXIT_FAILURE;
    }
    return load::run(seconds);
  } catch (const std::exception& error) {
    std::printf("FAILED: %s\n", error.what());
    return EXIT_FAILURE;
  }
}
