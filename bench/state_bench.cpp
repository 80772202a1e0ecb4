// What a server's start and a row cost as there are more sources and more rows in its file: the
// time from start to ready, and the memory then, with a new file, and with 10,000 sources and 10
// million rows; and the time that a row of 64 providers takes, and the server's processor time for
// it, with 10 and 10,000 sources, and with few rows and 10 million.
//   state_bench [--quick]: without the 10 million rows
#include <signal.h>

#include <list>
#include <memory>
#include <string>
#include <vector>

#include "bench/kept_state.h"
#include "bench/process_usage.h"
#include "bench/providers.h"
#include "bench/row_exchanges.h"
#include "bench/sides.h"
#include "dch/testkit/server_process.h"

namespace {

using dch::testkit::ServerProcess;
using Clock = std::chrono::steady_clock;

constexpr int providers = 64;
constexpr int fewSources = 10, manySources = 10'000;
// So many that the server does with a row what it does with every later one.
constexpr int fewRows = 300'000;
constexpr int manyRows = 10'000'000;

// Starts a server some times and stops it: how long it takes until it says that it is ready, and
// what it has in memory then. `kept` says what is in the file, or in a new one when that is null.
void measureStarts(int starts, const std::string& kept, const KeptState* state) {
  std::vector<double> milliseconds, mebibytes;
  for (int i = 0; i < starts; ++i) {
    const KeptState fresh;
    const auto start = Clock::now();
    ServerProcess server((state != nullptr ? *state : fresh).serverArguments());
    const std::chrono::duration<double, std::milli> time = Clock::now() - start;
    milliseconds.push_back(time.count());
    mebibytes.push_back(static_cast<double>(residentBytes(server.processId())) / (1 << 20));
    server.stop(SIGTERM);
  }
  printFigure("from start to ready, " + kept + ", ms", median(milliseconds));
  printFigure("memory of zordchd, idle, " + kept + ", MiB", median(mebibytes));
}

// Rows of sources of the file, each provider's in turn.
Exchange sendRowsInTurn(int port, int provider, int sources) {
  askServer(port);
  std::vector<Exchange> exchanges;
  for (int source = provider % sources; source < sources; source += providers)
    exchanges.push_back(sendRows(source + 1));
  const auto turn = std::make_shared<std::size_t>(0);
  return {[=] { exchanges[*turn % exchanges.size()].prepare(); },
          [=] { return exchanges[(*turn)++ % exchanges.size()].roundTrip(); }};
}

// A server on a file, and those who send to it.
class Case {
 public:
  Case(std::string name, const KeptState& state, int sources)
      : _name(std::move(name)),
        _server(state.serverArguments()),
        _providers(providers,
                   [&](int number) { return sendRowsInTurn(_server.port(), number, sources); }) {}

  const std::string& name() const { return _name; }

  Side side() {
    constexpr int rowsPerTurn = 2'048;
    return {_name, rowsPerTurn, [this](int rows) { return run(rows); }};
  }

  // The median of the turns.
  double processorTimeOfRow() const { return median(_processorTimes); }

 private:
  std::chrono::nanoseconds run(int rows) {
    const double before = processorMicroseconds(_server.processId());
    const auto time = _providers.run(rows);
    _processorTimes.push_back((processorMicroseconds(_server.processId()) - before) / rows);
    return time;
  }

  const std::string _name;
  const ServerProcess _server;
  Providers _providers;
  std::vector<double> _processorTimes;
};

// How much more a row costs in one case than in another.
void printGrowth(const std::string& growth, const Case& more, const Case& less,
                 const Medians& medians) {
  printFigure("time of a row, " + growth, medians.at(more.name()) / medians.at(less.name()));
  printFigure("processor time of zordchd for a row, " + growth,
              more.processorTimeOfRow() / less.processorTimeOfRow());
}

}  // namespace

int main(int argc, char** argv) {
  const bool quick = isQuick(argc, argv);
  const int starts = quick ? 5 : 21;
  measureStarts(starts, "nothing kept", nullptr);

  const KeptState few, many, full;
  few.fill(fewSources, fewRows);
  many.fill(manySources, fewRows);
  if (!quick) {
    full.fill(manySources, manyRows);
    measureStarts(starts, "10,000 sources and 10 million rows kept", &full);
  }

  std::list<Case> cases;
  Case& fewCase = cases.emplace_back("10 sources", few, fewSources);
  Case& manyCase = cases.emplace_back("10,000 sources", many, manySources);
  if (!quick) cases.emplace_back("10,000 sources, 10 million rows", full, manySources);
  std::vector<Side> sides;
  for (Case& each : cases) sides.push_back(each.side());
  const Medians medians = runSides(argc, argv, sides);
  printGrowth("10,000 sources / 10", manyCase, fewCase, medians);
  if (!quick) printGrowth("10 million rows kept / few", cases.back(), manyCase, medians);
}
