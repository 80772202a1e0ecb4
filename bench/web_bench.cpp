// What it costs those who send rows that others look: the rows of 64 providers, kept in a file,
// beside 50 pages that show them live, as many as the server lets each have, and a scrape each
// second, and without; and the same beside a scrape each second of 10,000 sources of 8 numbers.
//   web_bench [ROUNDS [SECONDS]]: 15 rounds of all sides, 2 seconds a side
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench/kept_state.h"
#include "bench/latency_run.h"
#include "bench/live_pages.h"
#include "bench/row_exchanges.h"
#include "bench/sides.h"
#include "dch/testkit/http_client.h"
#include "dch/testkit/server_process.h"

namespace {

constexpr int providers = 64;
constexpr int pages = 50;
constexpr int sources = 10'000;
constexpr int numbers = 8;

// One a second.
Exchange scrape(int pagePort) {
  const auto page = std::make_shared<dch::testkit::HttpClient>(pagePort);
  return afterAPause(
      std::chrono::seconds(1),
      {[] {},
       [page] {
         const int status = page->get("/metrics").status;
         if (status == 200) return true;
         throw std::runtime_error("a scrape ends with status " + std::to_string(status));
       }});
}

// The server with its page, and those who send to it while others look at it, or nobody does.
class Watched {
 public:
  Watched(const char* name, const KeptState& state, int livePages)
      : _name(name), _livePages(livePages), _server(state.serverArguments()) {}

  void runRound(std::chrono::seconds time) {
    const Percentiles without = send(time);
    Percentiles with{};
    {
      std::optional<LivePages> live;
      if (_livePages > 0) live.emplace(_livePages, _pagePort, "BENCH");
      // The first scrape comes after a second, the last one before the rows end.
      LatencyRun scraping(
          1, [this](int) { return scrape(_pagePort); }, time - std::chrono::milliseconds(500));
      with = send(time);
      _scrapes.push_back(scraping.finish().p50);
    }
    std::printf(
        "%s: without %zu rows, p50 %4.0f us, p99 %5.0f us, with %zu rows, p50 %4.0f us, p99 %5.0f "
        "us, a scrape %.0f us\n",
        _name, without.count, without.p50, without.p99, with.count, with.p50, with.p99,
        _scrapes.back());
    std::fflush(stdout);
    _rows.push_back(static_cast<double>(with.count) / static_cast<double>(without.count));
    _p99.push_back(with.p99 / without.p99);
  }

  // Of the sides of a round, with / without.
  double rows() const { return median(_rows); }
  double p99() const { return median(_p99); }
  double scrapeMilliseconds() const { return median(_scrapes) / 1'000; }

 private:
  Percentiles send(std::chrono::milliseconds time) {
    const auto connect = [this](int number) {
      return sendRowsToServer(_server.port(), "host" + std::to_string(number));
    };
    return LatencyRun(providers, connect, time).finish();
  }

  const char* const _name;
  const int _livePages;
  dch::testkit::ServerProcess _server;
  const int _pagePort = _server.pagePort();
  std::vector<double> _rows, _p99, _scrapes;
};

}  // namespace

int main(int argc, char** argv) {
  const int rounds = argc > 1 ? std::atoi(argv[1]) : 15;
  const std::chrono::seconds time(argc > 2 ? std::atoi(argv[2]) : 2);
  const KeptState few(KeptState::withPage), many(KeptState::withPage);
  many.fillNumbers(sources, numbers, sources);
  Watched pagesLook("50 pages", few, pages), scrapes("10,000 sources", many, 0);
  for (int round = 0; round < rounds; ++round) {
    pagesLook.runRound(time);
    scrapes.runRound(time);
  }
  printFigure("rows/s of 64 providers, 50 live pages and a scrape a second / without",
              pagesLook.rows());
  printFigure("p99 of 64 providers, a scrape of 10,000 sources a second / without", scrapes.p99());
  printFigure("a scrape of 10,000 sources of 8 numbers beside 64 providers, ms",
              scrapes.scrapeMilliseconds());
}
