// zordchd_store_load [--seconds N] [--kill-every N] [--rows N] [--rate N] [--keep-megabytes N]
// [--subscribers N]: 2,000 sources and 500 subscribers against a zordchd that keeps the rows in a
// file, until so many seconds have passed (120) or so many rows are acknowledged. The server is
// killed every so many seconds and started again (0: never); it is sent so many rows a second (0:
// as many as it takes) and keeps so many megabytes. Prints what it measured, and fails when a row
// that was acknowledged is not in the file once.
#include <signal.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>

#include "dch/testkit/kept_rows.h"
#include "dch/testkit/server_process.h"
#include "tests/load/command_line.h"
#include "tests/load/measures.h"
#include "tests/load/providers.h"
#include "tests/load/subscribers.h"
#include "tests/support/temporary_files.h"
#include "zordchcl/zordchcl.h"

namespace load {
namespace {

using Clock = std::chrono::steady_clock;

constexpr int sourceCount = 2000;
constexpr int providerThreads = 8;

struct Settings {
  int seconds = 120;
  int killEvery = 30;
  int rows = 0;  // 0: no end
  int rate = 1'000;
  int keepMegabytes = 1'024;
  int subscribers = 500;
};

class Run {
 public:
  explicit Run(const Settings& settings)
      : _settings(settings),
        _configuration("[store]\nkeep_megabytes = " + std::to_string(settings.keepMegabytes) +
                       "\n") {
    setenv("ZORA_DCH_TIMEOUT", "1", 1);
    setenv("ZOR0_STRICT_ANSWERS", "Y", 1);
    setenv("ZORA_TRACE", "0x00", 1);  // that a row had no answer is counted here
    startServer();
    pointLibraryTo(_server->port());
    DCH_api_init();
  }

  bool work() {
    _providers.goOnline();
    startReaders();
    _start = _lifeStart = _lastLine = Clock::now();
    std::printf("  second       rows  rows/s  resident kB  file kB  log kB\n");
    _providers.start(_settings.rate);
    while (!isOver()) {
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
      const auto now = Clock::now();
      if (now - _lastLine >= std::chrono::seconds(std::max(_settings.seconds / 12, 1))) print();
      if (_settings.killEvery > 0 && now - _lifeStart >= std::chrono::seconds(_settings.killEvery))
        dieAndStart();
    }
    print();
    _providers.stop();
    endReaders();
    return report();
  }

 private:
  void startServer() {
    const int port = _server ? _server->port() : 0;
    _server.emplace(
        dch::testkit::ServerProcess::Arguments{"--store", _path, "--config", _configuration.path()},
        nullptr, port);
  }

  void dieAndStart() {
    _server->stop(SIGKILL);
    ++_deaths;
    endReaders();
    const auto before = Clock::now();
    startServer();
    _longestStart = std::max(_longestStart, Clock::now() - before);
    startReaders();
    _lifeStart = Clock::now();
  }

  void startReaders() {
    if (_settings.subscribers > 0) _readers.emplace(_settings.subscribers);
  }

  void endReaders() {
    if (!_readers) return;
    const Delivery delivery = _readers->finish();
    _delivery.received += delivery.received;
    _delivery.doubled += delivery.doubled;
    _delivery.droppedUnread += delivery.droppedUnread;
    _delivery.lost += delivery.lost;
    _readers.reset();
  }

  bool isOver() const {
    if (!_providers.failure().empty()) return true;
    if (_settings.rows > 0) return _providers.rows() >= static_cast<std::uint64_t>(_settings.rows);
    return Clock::now() - _start >= std::chrono::seconds(_settings.seconds);
  }

  std::uintmax_t kilobytesOf(const std::string& path) const {
    std::error_code none;
    const std::uintmax_t bytes = std::filesystem::file_size(path, none);
    return none ? 0 : bytes / 1024;
  }

  void print() {
    const auto now = Clock::now();
    const double passed = std::chrono::duration<double>(now - _lastLine).count();
    const std::uint64_t rows = _providers.rows();
    const long resident = usageOf(_server->processId()).residentKilobytes;
    _highestResident = std::max(_highestResident, resident);
    std::printf(
        "%8.0f %10llu %7.0f %12ld %8ju %7ju\n", std::chrono::duration<double>(now - _start).count(),
        static_cast<unsigned long long>(rows), static_cast<double>(rows - _rowsBefore) / passed,
        resident, kilobytesOf(_path), kilobytesOf(_path + "-wal"));
    std::fflush(stdout);
    _rowsBefore = rows;
    _lastLine = now;
  }

  bool report() {
    const double seconds = std::chrono::duration<double>(Clock::now() - _start).count();
    dch::testkit::KeptRows found;
    const bool removesOld = _settings.keepMegabytes < 1'024;
    for (int application = 0; application < applicationCount; ++application)
      dch::testkit::compareRows(_path, applicationName(application) + "." + groupName,
                                _providers.booksOf(application), &found, removesOld);
    const Quantiles latency = quantilesOf(_providers.latencies(allRead));
    const auto number = [](std::uint64_t value) { return static_cast<unsigned long long>(value); };
    std::printf("killed and started      %10d times, longest start %.0f ms\n", _deaths,
                std::chrono::duration<double, std::milli>(_longestStart).count());
    std::printf("rows acknowledged       %10llu, %.0f a second\n", number(_providers.rows()),
                static_cast<double>(_providers.rows()) / seconds);
    std::printf("  p50, p99, longest     %10.2f, %.2f, %.2f ms\n", latency.p50, latency.p99,
                latency.longest);
    std::printf("rows in the file        %10llu\n", number(found.acknowledged));
    std::printf("  lost                  %10llu\n", number(found.lost));
    std::printf("  doubled               %10llu\n", number(found.doubled));
    std::printf("  out of order, strange %10llu\n", number(found.outOfOrder + found.strange));
    std::printf("  sent again, twice     %10llu\n", number(found.repeated));
    std::printf("subscribers received    %10llu\n", number(_delivery.received));
    std::printf("  dropped by full socket%10llu\n", number(_delivery.droppedUnread));
    std::printf("  lost between others   %10llu\n", number(_delivery.lost));
    std::printf("  doubled               %10llu\n", number(_delivery.doubled));
    std::printf("highest resident        %10ld kB\n", _highestResident);
    if (!_providers.failure().empty()) std::printf("FAILED: %s\n", _providers.failure().c_str());
    const bool isComplete = removesOld || found.acknowledged == _providers.rows();
    return _providers.failure().empty() && found.areRight() && isComplete && _delivery.lost == 0;
  }

  const Settings _settings;
  const TemporaryFolder _folder;
  const TemporaryFile _configuration;
  const std::string _path = _folder.path() + "/state.db";
  std::optional<dch::testkit::ServerProcess> _server;
  Providers _providers{sourceCount, providerThreads, Providers::Server::mayDie};
  std::optional<Readers> _readers;
  Delivery _delivery;
  Clock::time_point _start, _lifeStart, _lastLine;
  Clock::duration _longestStart{0};
  std::uint64_t _rowsBefore = 0;
  long _highestResident = 0;
  int _deaths = 0;
};

// Returns whether the command line was in order.
bool readSettings(int argc, char** argv, Settings* settings) {
  return readNumbers(argc, argv,
                     {{"--seconds", &settings->seconds},
                      {"--kill-every", &settings->killEvery},
                      {"--rows", &settings->rows},
                      {"--rate", &settings->rate},
                      {"--keep-megabytes", &settings->keepMegabytes},
                      {"--subscribers", &settings->subscribers}});
}

}  // namespace
}  // namespace load

int main(int argc, char** argv) {
  load::Settings settings;
  if (!load::readSettings(argc, argv, &settings)) {
    std::fprintf(stderr,
                 "Usage: zordchd_store_load [--seconds N] [--kill-every N] [--rows N] [--rate N]\n"
                 "                          [--keep-megabytes N] [--subscribers N]\n");
    return EXIT_FAILURE;
  }
  return load::runToEnd([&] {
    load::raiseDescriptorLimit(settings.subscribers);
    return load::Run(settings).work();
  });
}
