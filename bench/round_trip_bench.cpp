// What a request costs: the round trip of dp_data, of a whole row, and of bare system calls, all
// against the same echo peer in the same run. The figures that count are the ratios at the end.
#include <arpa/inet.h>
#include <benchmark/benchmark.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>

#include "bench/echo_peer.h"
#include "zordchcl/zordchcl.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr int rowSize = 128;
constexpr int rowAttributes = 8;
constexpr int repetitions = 15;

EchoPeer* peer;

// One attribute whose value makes the whole message `rowSize` bytes.
char* buildRow() {
  static const char value[81] =
      "a value of the length that makes the message a hundred and "
      "twenty-eight bytes";
  char* row = nullptr;
  ZORA_Long size = 0;
  ZORA_Long status = 0;
  dp_formatData(&status, &row, &size, "attr", value, sizeof value - 1, 'D');
  if (size != rowSize) std::abort();
  return row;
}

void bareRoundTrip(benchmark::State& state) {
  char* const row = buildRow();
  const int client = socket(AF_INET, SOCK_DGRAM, 0);
  char answer[8192];
  for (auto _ : state) {
    sendto(client, row, rowSize, 0, reinterpret_cast<const sockaddr*>(&peer->address()),
           sizeof(sockaddr_in));
    fd_set readable;
    FD_ZERO(&readable);
    FD_SET(client, &readable);
    timeval wait{30, 0};
    select(client + 1, &readable, nullptr, nullptr, &wait);
    sockaddr_in sender;
    socklen_t senderLength = sizeof sender;
    if (recvfrom(client, answer, sizeof answer, 0, reinterpret_cast<sockaddr*>(&sender),
                 &senderLength) <= 0)
      state.SkipWithError("no answer");
  }
  close(client);
  delete[] row;
}

// dp_data frees its row: each round trip gets a fresh one outside the measured time.
void dpData(benchmark::State& state) {
  for (auto _ : state) {
    char* row = buildRow();
    ZORA_Long status = 0;
    const auto start = Clock::now();
    if (dp_data(&status, 1, 17, &row) != 0 || status != 0) state.SkipWithError("dp_data failed");
    state.SetIterationTime(std::chrono::duration<double>(Clock::now() - start).count());
  }
}

void wholeRow(benchmark::State& state) {
  for (auto _ : state) {
    char* row = nullptr;
    ZORA_Long size = 0;
    ZORA_Long status = 0;
    for (ZORA_Long value = 0; value < rowAttributes; ++value)
      dp_formatData(&status, &row, &size, "attribute", &value, sizeof value, 'N');
    if (dp_data(&status, 1, 17, &row) != 0 || status != 0) state.SkipWithError("dp_data failed");
  }
}

BENCHMARK(bareRoundTrip)->Repetitions(repetitions)->UseRealTime();
BENCHMARK(dpData)->Repetitions(repetitions)->UseManualTime();
BENCHMARK(wholeRow)->Repetitions(repetitions)->UseRealTime();

// Prints as usual and keeps the medians for the ratios.
class MedianReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs)
      if (run.aggregate_name == "median")
        _medians[run.run_name.function_name] = run.GetAdjustedRealTime();
    ConsoleReporter::ReportRuns(runs);
  }

  void printRatio(const char* name) const {
    std::printf("%s / bareRoundTrip, medians: %.3f\n", name,
                _medians.at(name) / _medians.at("bareRoundTrip"));
  }

 private:
  std::map<std::string, double> _medians;
};

}  // namespace

int main(int argc, char** argv) {
  EchoPeer echoPeer;
  peer = &echoPeer;
  setenv("ZORA_DCH_ADDR", "127.0.0.1", 1);
  setenv("ZORA_DCH_PORT", std::to_string(ntohs(echoPeer.address().sin_port)).c_str(), 1);

  // The machine's speed drifts: the repetitions of all benchmarks take turns.
  std::vector<char*> arguments(argv, argv + argc);
  char interleaving[] = "--benchmark_enable_random_interleaving=true";
  char aggregates[] = "--benchmark_display_aggregates_only=true";
  arguments.insert(arguments.begin() + 1, {interleaving, aggregates});
  int count = static_cast<int>(arguments.size());
  benchmark::Initialize(&count, arguments.data());
  MedianReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  reporter.printRatio("dpData");
  reporter.printRatio("wholeRow");
}
