// How long who asks for kept rows waits: an hour of a source that sends one a second, as JSON, and
// 30 days of them thinned to a thousand points, with what memory that takes the server.
//   answer_bench [--quick]: --quick keeps a day instead of the 30
#include <chrono>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench/kept_state.h"
#include "bench/process_usage.h"
#include "bench/sides.h"
#include "dch/testkit/http_client.h"
#include "dch/testkit/server_process.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr int secondsADay = 86'400;
constexpr int numbers = 3;

// The median time of some answers in milliseconds. Throws when one has fewer rows.
double timeOf(int pagePort, const std::string& range, std::size_t leastRows, int times) {
  const dch::testkit::HttpClient page(pagePort);
  std::vector<double> milliseconds;
  for (int i = 0; i < times; ++i) {
    const auto start = Clock::now();
    const auto answer = page.get("/api/rows?application=NUMBERS&group=group&source=host1" + range);
    milliseconds.push_back(std::chrono::duration<double, std::milli>(Clock::now() - start).count());
    if (answer.status != 200 || answer.json()["rows"].size() < leastRows)
      throw std::runtime_error("an answer is not what it should be: " + answer.error());
  }
  return median(milliseconds);
}

}  // namespace

int main(int argc, char** argv) {
  const bool quick = isQuick(argc, argv);
  const int days = quick ? 1 : 30;
  // None of the rows goes meanwhile.
  const KeptState state(std::string("keep_days = 60\n") + KeptState::withPage);
  state.fillNumbers(1, numbers, days * secondsADay);
  dch::testkit::ServerProcess server(state.serverArguments());
  const int pagePort = server.pagePort();

  constexpr int hourRows = 3'600;
  constexpr int leastPoints = 990;  // the others lie before the first row, or behind the newest
  printFigure("an hour of a source at a row a second as JSON, ms",
              timeOf(pagePort, "&limit=3600", hourRows, 21));
  const long before = residentBytes(server.processId());
  const double thinned =
      timeOf(pagePort, "&points=1000&since=-" + std::to_string(days) + "d", leastPoints, 5);
  if (quick) return 0;
  printFigure("30 days of it thinned to 1,000 points, ms", thinned);
  printFigure("memory of zordchd for that, MiB",
              static_cast<double>(mostResidentBytes(server.processId()) - before) / 1024 / 1024);
}
