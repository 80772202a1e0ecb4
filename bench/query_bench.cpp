// What a question to the catalogue costs, and what it costs others: the latency of such questions
// while 64 providers send rows that are kept in a file, and while nobody does; and that of the
// rows, with and without the questions. 200 applications of 20 attributes are registered; the
// providers send as fast as they are answered, one process asks for the attributes of an
// application some hundred times a second. The same with a peer of bare system calls, which answers
// all that comes alike, shows what the machine does to whoever asks beside 64 others.
//   query_bench [ROUNDS [SECONDS]]: 5 rounds of all sides, 2 seconds a side
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench/echo_peer.h"
#include "bench/kept_state.h"
#include "bench/latency_run.h"
#include "bench/row_exchanges.h"
#include "bench/sides.h"
#include "dch/testkit/server_process.h"
#include "zordchcl/zordchcl.h"

namespace {

constexpr int providers = 64;
constexpr std::chrono::milliseconds pauseOfQuestions{2};

std::string applicationName(int number) {
  return "APPLICATION" + std::to_string(1000 + number);
}

void registerApplications(int port) {
  askServer(port);
  for (int number = 0; number < 200; ++number) {
    std::string text = "appl:" + applicationName(number) + ",KEY;help:one of many;";
    for (int group = 0; group < 4; ++group) {
      text += "group:group" + std::to_string(group) + ';';
      for (int i = 0; i < 5; ++i)
        text += "attr:attribute" + std::to_string(i) + ",D,96,what this attribute counts;";
    }
    ZORA_Long status = 1;
    if (dp_register(&status, text.c_str()) != 0 || status != 0)
      throw std::runtime_error("an application cannot be registered");
  }
}

Exchange askForAttributes(int port) {
  askServer(port);
  return afterAPause(pauseOfQuestions, {[] {},
                                        [name = applicationName(100)] {
                                          ZORA_Long length = 0;
                                          char* answer = nullptr;
                                          constexpr short wait = 10;
                                          const int result = dc_getApplAttributes(
                                              &length, &answer, name.c_str(), wait);
                                          std::free(answer);
                                          return result == 0 && length > 0;
                                        }});
}

using Connect = std::function<Exchange(int number)>;

// One who asks, with those who send beside it and without them.
class Asking {
 public:
  Asking(const char* name, Connect send, Connect ask)
      : _name(name), _send(std::move(send)), _ask(std::move(ask)) {}

  // What those who send measured.
  Percentiles runRound(std::chrono::milliseconds time) {
    // Its whole time has to be beside the others, which start first.
    const auto shorter = time * 9 / 10;
    LatencyRun senders(providers, _send, time);
    const Percentiles beside = LatencyRun(1, _ask, shorter).finish();
    const Percentiles sending = senders.finish();
    const Percentiles alone = LatencyRun(1, _ask, shorter).finish();
    std::printf(
        "%s: asking alone p50 %5.0f us, p99 %5.0f us, beside senders p50 %5.0f us, p99 "
        "%5.0f us\n",
        _name, alone.p50, alone.p99, beside.p50, beside.p99);
    std::fflush(stdout);
    _alone.push_back(alone.p99);
    _beside.push_back(beside.p99);
    return sending;
  }

  // Of the 99th percentile.
  double growth() const { return median(_beside) / median(_alone); }

 private:
  const char* const _name;
  const Connect _send, _ask;
  std::vector<double> _alone, _beside;
};

}  // namespace

int main(int argc, char** argv) {
  const int rounds = argc > 1 ? std::atoi(argv[1]) : 5;
  const std::chrono::seconds time(argc > 2 ? std::atoi(argv[2]) : 2);
  const EchoPeer echo;
  const KeptState state;
  const dch::testkit::ServerProcess server(state.serverArguments());
  // In a process of its own, so that the library starts anew in each provider.
  if (!Worker([&] { registerApplications(server.port()); }).succeeded()) return EXIT_FAILURE;

  const Connect send = [&](int number) {
    return sendRowsToServer(server.port(), "host" + std::to_string(number));
  };
  Asking questions("zordchd", send, [&](int) { return askForAttributes(server.port()); });
  Asking bare(
      "bare", [&](int) { return exchangeBare(echo.address()); },
      [&](int) { return afterAPause(pauseOfQuestions, exchangeBare(echo.address())); });
  std::vector<double> rows, rowsBesideQuestions;
  for (int round = 0; round < rounds; ++round) {
    rowsBesideQuestions.push_back(questions.runRound(time).p99);
    rows.push_back(LatencyRun(providers, send, time).finish().p99);
    bare.runRound(time);
  }
  printFigure("p99 of a catalogue question, 64 providers sending / without", questions.growth());
  printFigure("p99 of a bare round trip, 64 clients beside it / without", bare.growth());
  printFigure("p99 of 64 providers, with catalogue questions / without",
              median(rowsBesideQuestions) / median(rows));
}
