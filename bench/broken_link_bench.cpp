// What the providers of a site notice while what it is linked with breaks: how long their rows take
// while the NATS server is killed and started again, stands still, and cannot be reached in three
// ways, with what has to be caught up behind that, against the time before.
//   broken_link_bench [ROUNDS]
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "bench/kept_state.h"
#include "bench/latency_run.h"
#include "bench/row_exchanges.h"
#include "bench/sides.h"
#include "dch/testkit/nats_server.h"
#include "dch/testkit/server_process.h"
#include "dch/testkit/tcp_gate.h"

namespace {

using dch::testkit::NatsServer;
using dch::testkit::TcpGate;
using std::chrono::milliseconds;

constexpr int providers = 8;
constexpr milliseconds timeBroken{2'000}, timeAfter{1'000}, settling{1'000};

struct Harm {
  const char* name;
  std::function<void()> begin, end;
};

class Site {
 public:
  Site() { std::this_thread::sleep_for(settling); }

  std::vector<Harm> harms() {
    const auto pass = [this] { _gate.pass(); };
    return {{"is cut off", [this] { _gate.cut(); }, pass},
            {"hears and says nothing", [this] { _gate.hold(); }, pass},
            {"hears nothing", [this] { _gate.holdAnswers(); }, pass},
            {"stands still", [this] { _nats.stop(); }, [this] { _nats.resume(); }},
            {"dies", [this] { _nats.kill(); },
             [this] {
               _nats.restart();
               _gate.leadTo(_nats.port());
             }}};
  }

  double p99Quiet() { return start().finish().p99; }

  double p99During(const Harm& harm) {
    LatencyRun run = start();
    harm.begin();
    std::this_thread::sleep_for(timeBroken);
    harm.end();
    return run.finish().p99;
  }

 private:
  LatencyRun start() {
    const int port = _server.port();
    return {providers,
            [port](int number) {
              return afterAPause(milliseconds(5),
                                 sendRowsToServer(port, "host" + std::to_string(number)));
            },
            timeBroken + timeAfter};
  }

  NatsServer _nats;
  TcpGate _gate{_nats.port()};
  const KeptState _state{"[link]\nservers = [\"" + _gate.natsUrl() + "\"]\nsite = \"bench\"\n"};
  const dch::testkit::ServerProcess _server{_state.serverArguments()};
};

}  // namespace

int main(int argc, char** argv) {
  const int rounds = argc > 1 ? std::atoi(argv[1]) : 3;
  Site site;
  std::vector<double> ratios;
  for (int round = 0; round < rounds; ++round)
    for (const Harm& harm : site.harms()) {
      const double quiet = site.p99Quiet();
      const double broken = site.p99During(harm);
      std::printf("p99 while the NATS server %-22s %7.0f us, before %7.0f us\n", harm.name, broken,
                  quiet);
      std::fflush(stdout);
      ratios.push_back(broken / quiet);
      std::this_thread::sleep_for(settling);
    }
  printFigure("p99 of 8 providers while their server's link breaks / before", median(ratios));
}
