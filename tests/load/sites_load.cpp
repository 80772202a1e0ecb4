// zordchd_sites_load [--sites N] [--sources N] [--rows N] [--seconds N] [--silences N]: so many
// sites (1,000) with as many sources each (1,000), of which each sends so many rows (1), against a
// NATS server and a hub, which are real, on this machine. Prints what they took of it for so many
// seconds (30) in which the sites said that they are there, while the hub learnt of their
// providers, while some of these changed, while the rows came, after that, and while all sites fell
// silent so many times (1) and came back; and how long a row of a provider of the hub's own took
// meanwhile. Fails when the hub has not each row once, or does not come to tell its consumers of
// as many sources as are on line.
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>

#include "dch/store/sqlite.h"
#include "dch/testkit/nats_server.h"
#include "dch/testkit/reported_counters.h"
#include "dch/testkit/server_process.h"
#include "dch/testkit/site_fleet.h"
#include "tests/load/command_line.h"
#include "tests/load/consumer.h"
#include "tests/load/local_provider.h"
#include "tests/load/measures.h"
#include "tests/support/temporary_files.h"

namespace load {
namespace {

using Clock = std::chrono::steady_clock;
using dch::testkit::NatsServer;
using dch::testkit::ServerProcess;
using dch::testkit::SiteFleet;
using std::chrono::milliseconds;
using std::chrono::seconds;

struct Settings {
  int sites = 1'000;
  int sources = 1'000;
  int rows = 1;
  int seconds = 30;
  int silences = 1;
};

// Each second; so many sources of each change.
constexpr int sitesThatChange = 20;
constexpr int sourcesThatChange = 5;

double secondsSince(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

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
    rest();
    print("at rest, for", &provider);
    std::printf("  heard by the sites      %10.0f a second\n",
                static_cast<double>(fleet->heard() - heardBefore) / secondsSince(_phase));

    measureProviders(fleet, &provider);

    begin();
    fleet->publish(_settings.rows);
    std::printf("%ld rows are in the stream after %.1f s\n", rows(), secondsSince(_phase));
    waitFor("link_rows_collected", rows());
    print("the hub has them after", &provider);
    std::printf("  rows                    %10.0f a second\n",
                static_cast<double>(rows()) / secondsSince(_phase));

    begin();
    rest();
    print("at rest again, for", &provider);
    for (int each = 0; each < _settings.silences; ++each) measureSilence(fleet, &provider);
  }

  void measureProviders(SiteFleet* fleet, LocalProvider* provider) {
    fleet->goOnline();
    begin();
    waitForSources(fleet->sourcesOnline());
    print("consumers of the hub see all sources that are on line after", provider);
    std::printf("  sources                 %10ld\n", fleet->sourcesOnline());
    std::printf("  questions for them      %10ju, answered with %ju kB\n",
                std::uintmax_t{fleet->providerQuestions()},
                std::uintmax_t{fleet->providerBytes() / 1024});

    begin();
    rest();
    print("at rest with them, for", provider);

    begin();
    const std::uint64_t questionsBefore = fleet->providerQuestions();
    for (int second = 1; second <= _settings.seconds; ++second) {
      fleet->change(sitesThatChange, sourcesThatChange);
      std::this_thread::sleep_until(_phase + seconds(second));
    }
    const auto end = Clock::now();
    waitForSources(fleet->sourcesOnline());
    print("so many of them changed each second, for", provider);
    std::printf("  changes                 %10d a second, of %d sites\n",
                sitesThatChange * sourcesThatChange, sitesThatChange);
    std::printf("  all of them seen        %10.2f s after the last one\n", secondsSince(end));
    std::printf("  questions for them      %10ju\n",
                std::uintmax_t{fleet->providerQuestions() - questionsBefore});
  }

  void measureSilence(SiteFleet* fleet, LocalProvider* provider) {
    begin();
    fleet->fallSilent();
    waitForSources(0);
    print("all sites are silent; none of their sources is on line after", provider);
    begin();
    fleet->resume();
    waitForSources(fleet->sourcesOnline());
    print("they are back; all of their sources are after", provider);
  }

  void rest() const { std::this_thread::sleep_for(seconds(_settings.seconds)); }

  long rows() const {
    return static_cast<long>(_settings.sites) * _settings.sources * _settings.rows;
  }

  // Asks for a report now and then.
  void waitFor(const char* counter, long number) {
    waitUntilIs(counter, number, seconds(1), [&] {
      kill(_hub->processId(), SIGUSR1);
      return std::min(dch::testkit::reported(*_hub, counter).value_or(0), number);
    });
  }

  // Asks as consumers do.
  void waitForSources(long number) {
    const Consumer consumer(_hub->port());
    waitUntilIs("the number of sources on line", number, milliseconds(50),
                [&] { return consumer.sourcesOnline("FLEET"); });
  }

  // While it comes nearer.
  static void waitUntilIs(const std::string& what, long number, milliseconds pause,
                          const std::function<long()>& look) {
    constexpr seconds patience{120};
    long last = -1;
    for (auto deadline = Clock::now() + patience; last != number;) {
      std::this_thread::sleep_for(pause);
      const long now = look();
      if (now != last) deadline = Clock::now() + patience;
      last = now;
      if (Clock::now() > deadline)
        throw std::runtime_error(what + " stays " + std::to_string(last) + ", not " +
                                 std::to_string(number));
    }
  }

  void begin() {
    _phase = Clock::now();
    _hubBefore = processorSeconds(_hub->processId());
    _natsBefore = processorSeconds(_nats.processId());
  }

  void print(const char* what, LocalProvider* provider) {
    const double taken = secondsSince(_phase);
    const Quantiles latency = provider->takeLatencies();
    std::printf("%s %.1f s\n", what, taken);
    std::printf("  cores of the hub        %10.3f\n",
                (processorSeconds(_hub->processId()) - _hubBefore) / taken);
    std::printf("  cores of the NATS server%10.3f\n",
                (processorSeconds(_nats.processId()) - _natsBefore) / taken);
    const Usage usage = usageOf(_hub->processId());
    std::printf("  resident, hub           %10ld kB, %ld at most so far\n", usage.residentKilobytes,
                usage.mostResidentKilobytes);
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
    waitForSources(fleet.sourcesOnline());
    std::printf("  sees all sources after  %10.2f s\n", secondsSince(start));
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
                      {"--seconds", &settings->seconds},
                      {"--silences", &settings->silences}}) &&
         settings->sites > 0 && settings->sources > 0 && settings->rows > 0 &&
         settings->seconds > 0 && settings->silences >= 0;
}

}  // namespace
}  // namespace load

int main(int argc, char** argv) {
  load::Settings settings;
  if (!load::readSettings(argc, argv, &settings)) {
    std::fprintf(stderr,
                 "Usage: zordchd_sites_load [--sites N] [--sources N] [--rows N]\n"
                 "                          [--seconds N] [--silences N]\n");
    return EXIT_FAILURE;
  }
  return load::runToEnd([&] {
    load::raiseDescriptorLimit(settings.sites);
    return load::Run(settings).work();
  });
}
