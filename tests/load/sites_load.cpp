// zordchd_sites_load [--sites N] [--sources N] [--rows N] [--seconds N]: so many sites (1,000) with
// as many sources each (1,000), of which each sends so many rows (1), against a NATS server and a
// hub, which are real, on this machine. Prints what they took of it for so many seconds (30) in
// which the sites said that they are there, while the rows came, and after that; and how long a row
// of a provider of the hub's own took meanwhile. Fails when the hub has not each row once.
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>

#include "dch/store/sqlite.h"
#include "dch/testkit/clients.h"
#include "dch/testkit/messages.h"
#include "dch/testkit/nats_server.h"
#include "dch/testkit/reported_counters.h"
#include "dch/testkit/server_process.h"
#include "dch/testkit/site_fleet.h"
#include "tests/load/command_line.h"
#include "tests/load/measures.h"
#include "tests/support/temporary_files.h"

namespace load {
namespace {

using Clock = std::chrono::steady_clock;
using dch::testkit::NatsServer;
using dch::testkit::ServerProcess;
using dch::testkit::SiteFleet;

struct Settings {
  int sites = 1'000;
  int sources = 1'000;
  int rows = 1;
  int seconds = 30;
};

double secondsSince(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

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
      const auto start = Clock::now();
      const bool isKept = dch::testkit::statusOf(_client.ask(row)) == 0;
      const auto taken =
          std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - start);
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

class Run {
 public:
  explicit Run(const Settings& settings) : _settings(settings) {}

  bool work() {
    startHub();
    const auto start = Clock::now();
    SiteFleet fleet(_nats.url(), {_settings.sites, _settings.sources});
    std::printf("%d sites have connected after %.1f s\n", _settings.sites, secondsSince(start));
    waitFor("link_sites", _settings.sites);
    std::printf("the hub knows them after       %.1f s\n", secondsSince(start));
    measure(&fleet);
    return report(fleet);
  }

 private:
  void startHub() {
    _hub.emplace(ServerProcess::Arguments{"--config", _configuration.path(), "--store", _path});
  }

  void measure(SiteFleet* fleet) {
    LocalProvider provider(_hub->port());
    begin();
    const std::uint64_t heardBefore = fleet->heard();
    std::this_thread::sleep_for(std::chrono::seconds(_settings.seconds));
    print("at rest, for", &provider);
    std::printf("  heard by the sites      %10.0f a second\n",
                static_cast<double>(fleet->heard() - heardBefore) / secondsSince(_phase));

    begin();
    fleet->publish(_settings.rows);
    std::printf("%ld rows are in the stream after %.1f s\n", rows(), secondsSince(_phase));
    waitFor("link_rows_collected", rows());
    print("the hub has them after", &provider);
    std::printf("  rows                    %10.0f a second\n",
                static_cast<double>(rows()) / secondsSince(_phase));

    begin();
    std::this_thread::sleep_for(std::chrono::seconds(_settings.seconds));
    print("at rest again, for", &provider);
  }

  long rows() const {
    return static_cast<long>(_settings.sites) * _settings.sources * _settings.rows;
  }

  // Asks for a report now and then.
  void waitFor(const char* counter, long number) {
    constexpr std::chrono::seconds patience{120};
    long last = 0;
    for (auto deadline = Clock::now() + patience; last < number;) {
      kill(_hub->processId(), SIGUSR1);
      std::this_thread::sleep_for(std::chrono::seconds(1));
      const long now = dch::testkit::reported(*_hub, counter).value_or(0);
      if (now > last) deadline = Clock::now() + patience;
      last = now;
      if (Clock::now() > deadline)
        throw std::runtime_error(std::string(counter) + " stays " + std::to_string(last));
    }
  }

  void begin() {
    _phase = Clock::now();
    _hubBefore = processorSeconds(_hub->processId());
    _natsBefore = processorSeconds(_nats.processId());
  }

  void print(const char* what, LocalProvider* provider) {
    const double seconds = secondsSince(_phase);
    const Quantiles latency = provider->takeLatencies();
    std::printf("%s %.1f s\n", what, seconds);
    std::printf("  cores of the hub        %10.3f\n",
                (processorSeconds(_hub->processId()) - _hubBefore) / seconds);
    std::printf("  cores of the NATS server%10.3f\n",
                (processorSeconds(_nats.processId()) - _natsBefore) / seconds);
    std::printf("  resident, hub           %10ld kB\n",
                usageOf(_hub->processId()).residentKilobytes);
    std::printf("  resident, NATS server   %10ld kB\n",
                usageOf(_nats.processId()).residentKilobytes);
    std::printf("  a row of the hub's own, p50, p99, longest %.2f, %.2f, %.2f ms\n", latency.p50,
                latency.p99, latency.longest);
    std::fflush(stdout);
  }

  bool report(const SiteFleet& fleet) {
    if (_hub->stop(SIGTERM) != 0) throw std::runtime_error("the hub did not end well");
    std::printf("questions of the hub      %10llu\n",
                static_cast<unsigned long long>(fleet.questions()));
    std::printf("its file                  %10ju kB\n", std::filesystem::file_size(_path) / 1024);
    const auto start = Clock::now();
    startHub();
    std::printf("started again in          %10.2f s\n", secondsSince(start));
    std::printf("  resident then           %10ld kB\n",
                usageOf(_hub->processId()).residentKilobytes);
    waitFor("link_sites", _settings.sites);
    if (_hub->stop(SIGTERM) != 0) throw std::runtime_error("the hub did not end well");
    const long found = rowsInFile();
    std::printf("rows in the file          %10ld of %ld\n", found, rows());
    return found == rows();
  }

  // Those of other sites; no two of them are one row.
  long rowsInFile() const {
    dch::sqlite::Connection file(_path, nullptr, dch::sqlite::Access::read);
    dch::sqlite::Statement tables(file,
                                  "SELECT name FROM sqlite_schema WHERE type = 'table' AND name "
                                  "LIKE 'remote\\_rows\\_%' ESCAPE '\\'");
    long rows = 0;
    while (tables.step())
      rows += static_cast<long>(
          dch::sqlite::queryNumber(file, "SELECT count(*) FROM " + std::string(tables.bytes(0))));
    return rows;
  }

  const Settings _settings;
  const NatsServer _nats;
  const TemporaryFolder _folder;
  const std::string _path = _folder.path() + "/state.db";
  const TemporaryFile _configuration{
      "[store]\nkeep_megabytes = 16384\nkeep_days = 36500\n[link]\nservers = ['" + _nats.url() +
      "']\nsite = 'hub'\nstore_remote = true\n"};
  std::optional<ServerProcess> _hub;
  Clock::time_point _phase;
  double _hubBefore = 0, _natsBefore = 0;
};

// Returns whether the command line was in order.
bool readSettings(int argc, char** argv, Settings* settings) {
  return readNumbers(argc, argv,
                     {{"--sites", &settings->sites},
                      {"--sources", &settings->sources},
                      {"--rows", &settings->rows},
                      {"--seconds", &settings->seconds}}) &&
         settings->sites > 0 && settings->sources > 0 && settings->rows > 0 &&
         settings->seconds > 0;
}

}  // namespace
}  // namespace load

int main(int argc, char** argv) {
  load::Settings settings;
  if (!load::readSettings(argc, argv, &settings)) {
    std::fprintf(stderr,
                 "Usage: zordchd_sites_load [--sites N] [--sources N] [--rows N]\n"
                 "                          [--seconds N]\n");
    return EXIT_FAILURE;
  }
  return load::runToEnd([&] {
    load::raiseDescriptorLimit(settings.sites);
    return load::Run(settings).work();
  });
}
