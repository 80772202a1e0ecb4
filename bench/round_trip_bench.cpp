// What a request costs: the round trip of dp_data, of a whole row, of dp_data through zordchd, of
// the same exchange over messaging libraries, and of bare system calls. All of them take turns in
// one run, because a machine's speed drifts; the figures that count are the ratios at the end.
#include <benchmark/benchmark.h>
#include <sys/select.h>
#include <sys/socket.h>

#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "bench/echo_peer.h"
#include "bench/exchange_client.h"
#include "bench/messaging_peers.h"
#include "dch/testkit/server_process.h"
#include "zordchcl/zordchcl.h"

namespace {

constexpr int repetitions = 15;
constexpr int turns = 20;  // in a repetition
constexpr int tripsPerTurn = 250;
constexpr int rowAttributes = 8;
constexpr short sampleType = 17;

// Nothing but system calls; the row is built as for the library, so that the peer waits as long.
Exchange connectBare(const sockaddr_in& peer) {
  const int client = socket(AF_INET, SOCK_DGRAM, 0);
  auto row = std::make_shared<std::unique_ptr<char[]>>();
  return {[row] { row->reset(buildRow()); },
          [row, client, peer] {
            sendto(client, row->get(), requestSize, 0, reinterpret_cast<const sockaddr*>(&peer),
                   sizeof peer);
            fd_set readable;
            FD_ZERO(&readable);
            FD_SET(client, &readable);
            timeval wait{30, 0};
            select(client + 1, &readable, nullptr, nullptr, &wait);
            char answer[8192];
            sockaddr_in sender;
            socklen_t senderLength = sizeof sender;
            return recvfrom(client, answer, sizeof answer, 0, reinterpret_cast<sockaddr*>(&sender),
                            &senderLength) == answerSize;
          }};
}

// dp_data frees its row: each round trip gets a fresh one.
Exchange sendRows(ZORA_Long handle) {
  auto row = std::make_shared<char*>(nullptr);
  return {[row] { *row = buildRow(); },
          [row, handle] {
            ZORA_Long status = 1;
            return dp_data(&status, handle, sampleType, row.get()) == 0 && status == 0;
          }};
}

Exchange buildAndSendRows() {
  return {[] { delete[] buildRow(); },
          [] {
            char* row = nullptr;
            ZORA_Long size = 0;
            ZORA_Long status = 1;
            for (ZORA_Long value = 0; value < rowAttributes; ++value)
              dp_formatData(&status, &row, &size, "attribute", &value, sizeof value, 'N');
            return dp_data(&status, 1, sampleType, &row) == 0 && status == 0;
          }};
}

Exchange sendRowsToServer(int port) {
  setenv("ZORA_DCH_PORT", std::to_string(port).c_str(), 1);
  ZORA_Long status = 1, handle = 0;
  dp_register(&status, "appl:BENCH,BEN;group:group;attr:attr,D,96;");
  if (status == 0) dp_online(&status, &handle, "BENCH", "group", "host");
  if (status != 0) throw std::runtime_error("the server does not take the registration");
  return sendRows(handle);
}

// Prints as usual and keeps the medians for the ratios.
class MedianReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs)
      if (run.aggregate_name == "median")
        _medians[run.run_name.function_name] = run.GetAdjustedRealTime();
    ConsoleReporter::ReportRuns(runs);
  }

  void printRatios(const std::string& base) const {
    for (const auto& [name, median] : _medians)
      if (name != base)
        std::printf("%s / %s: %.3f\n", name.c_str(), base.c_str(), median / _medians.at(base));
  }

 private:
  std::map<std::string, double> _medians;
};

void registerClient(const char* name, ExchangeClient* client) {
  benchmark::RegisterBenchmark(
      name,
      [client](benchmark::State& state) {
        for (auto _ : state)
          state.SetIterationTime(std::chrono::duration<double>(client->run(tripsPerTurn)).count() /
                                 tripsPerTurn);
      })
      ->UseManualTime()
      ->Iterations(turns)
      ->Repetitions(repetitions);
}

}  // namespace

int main(int argc, char** argv) {
  const EchoPeer echo;
  echo.becomeDch();
  const dch::testkit::ServerProcess server;
  const ZeroMqPeer zeroMq;
  const NngPeer nng;
  const NatsPeer nats;
  ExchangeClient bare([&] { return connectBare(echo.address()); });
  ExchangeClient row([] { return sendRows(1); });
  ExchangeClient wholeRow(buildAndSendRows);
  ExchangeClient serverRow([&] { return sendRowsToServer(server.port()); });
  ExchangeClient zeroMqClient([&] { return zeroMq.connect(); });
  ExchangeClient nngClient([&] { return nng.connect(); });
  ExchangeClient natsClient([&] { return nats.connect(); });
  registerClient("bare", &bare);
  registerClient("dp_data", &row);
  registerClient("row-of-8", &wholeRow);
  registerClient("zordchd", &serverRow);
  registerClient("zeromq", &zeroMqClient);
  registerClient("nng", &nngClient);
  registerClient("nats", &natsClient);

  std::vector<char*> arguments(argv, argv + argc);
  char interleaving[] = "--benchmark_enable_random_interleaving=true";
  char aggregates[] = "--benchmark_display_aggregates_only=true";
  arguments.insert(arguments.begin() + 1, {interleaving, aggregates});
  int count = static_cast<int>(arguments.size());
  benchmark::Initialize(&count, arguments.data());
  MedianReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  reporter.printRatios("bare");
}
