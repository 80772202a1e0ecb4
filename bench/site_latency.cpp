// How much later a row comes to a subscriber of another site than to one of its own: the same row
// at both, against a message that one program publishes and another one of this machine gets, in
// turns.
//   site_latency [ROUNDS]
#include <nats/nats.h>
#include <poll.h>
#include <signal.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "bench/kept_state.h"
#include "bench/nats_connection.h"
#include "bench/nats_server.h"
#include "bench/sides.h"
#include "dch/testkit/clients.h"
#include "dch/testkit/messages.h"
#include "dch/testkit/server_process.h"

namespace {

using Clock = std::chrono::steady_clock;
using dch::testkit::ServerProcess;
using Microseconds = std::chrono::duration<double, std::micro>;

constexpr int rowsOfRound = 500;
constexpr std::chrono::milliseconds pauseBetweenRows{2};
constexpr int longestWait = 1'000;  // milliseconds; a row that has not come by then is lost

// A row is sent, and each subscriber gets it.
class Sites {
 public:
  explicit Sites(const NatsServer& nats)
      : _westState(of("west", nats)), _eastState(of("east", nats)) {
    for (const dch::testkit::UdpClient* const each : {&_here, &_there})
      each->send(dch::testkit::subscribeMessage("BENCH", "load"));
    _provider.ask(dch::testkit::registerMessage("appl:BENCH,KEY;group:load;attr:load1,D,16;",
                                                "BENCH", "KEY"));
    _handle = dch::testkit::handleOf(
        _provider.ask(dch::testkit::onlineMessage("BENCH", "load", "host1")));
    // Until the sites have found each other.
    for (int tries = 0; !sendRow(); ++tries)
      if (tries == 60) throw std::runtime_error("no row comes to the other site");
  }
  ~Sites() {
    _west.stop(SIGTERM);
    _east.stop(SIGTERM);
  }

  // Microseconds by which it comes later to the other site; rows that are lost are left out.
  std::vector<double> differences() {
    std::vector<double> all;
    for (int row = 0; row < rowsOfRound; ++row) {
      std::this_thread::sleep_for(pauseBetweenRows);
      if (sendRow()) all.push_back(_difference);
    }
    return all;
  }

 private:
  static KeptState of(const std::string& site, const NatsServer& nats) {
    return KeptState("[link]\nservers = [\"" + nats.url() + "\"]\nsite = \"" + site + "\"\n");
  }

  // Returns whether it has come to both.
  bool sendRow() {
    _provider.send(dch::testkit::dataMessage(_handle, {{"load1", 'D', std::to_string(++_number)}}));
    pollfd waiting[2] = {{_here.descriptor(), POLLIN, 0}, {_there.descriptor(), POLLIN, 0}};
    Clock::time_point came[2];
    const dch::testkit::UdpClient* const clients[2] = {&_here, &_there};
    int left = 2;
    while (left > 0 && poll(waiting, 2, longestWait) > 0) {
      const auto now = Clock::now();
      for (int i = 0; i < 2; ++i) {
        if ((waiting[i].revents & POLLIN) == 0) continue;
        const std::string row = clients[i]->receive().value_or("");
        if (!row.ends_with(std::to_string(_number))) continue;
        came[i] = now;
        waiting[i].fd = -1;
        --left;
      }
    }
    _provider.receive();  // that it is kept
    _difference = Microseconds(came[1] - came[0]).count();
    return left == 0;
  }

  const KeptState _westState, _eastState;
  ServerProcess _west{_westState.serverArguments()}, _east{_eastState.serverArguments()};
  const dch::testkit::UdpClient _here{_west.port()}, _there{_east.port()};
  const dch::testkit::TcpClient _provider{_west.port()};
  ZORA_Long _handle = 0;
  int _number = 100'000;
  double _difference = 0;
};

// Two connections of this process, each with threads of its own.
class Messages {
 public:
  explicit Messages(const NatsServer& nats)
      : _sender(openConnection(nats.url())), _receiver(openConnection(nats.url())) {
    require(natsConnection_SubscribeSync(&_subscription, _receiver, "bare"));
    require(natsConnection_Flush(_receiver));
  }

  std::vector<double> times() const {
    const std::string body(dch::testkit::dataMessage(1, {{"load1", 'D', "100000"}}).size(), 'x');
    std::vector<double> all;
    for (int number = 0; number < rowsOfRound; ++number) {
      std::this_thread::sleep_for(pauseBetweenRows);
      const auto start = Clock::now();
      require(natsConnection_Publish(_sender, "bare", body.data(), static_cast<int>(body.size())));
      natsMsg* message = nullptr;
      require(natsSubscription_NextMsg(&message, _subscription, 10'000));
      all.push_back(Microseconds(Clock::now() - start).count());
      natsMsg_Destroy(message);
    }
    return all;
  }

 private:
  natsConnection *const _sender, *const _receiver;
  natsSubscription* _subscription = nullptr;
};

double percentile(std::vector<double> values, double part) {
  std::sort(values.begin(), values.end());
  return values[static_cast<std::size_t>(part * static_cast<double>(values.size() - 1))];
}

}  // namespace

int main(int argc, char** argv) {
  const int rounds = argc > 1 ? std::atoi(argv[1]) : 5;
  const TemporaryFolder folder;
  const NatsServer nats({"--jetstream", "--store_dir", folder.path()});
  Sites sites(nats);
  const Messages messages(nats);
  std::vector<double> later, late, ratios;
  for (int round = 0; round < rounds; ++round) {
    const double bare = percentile(messages.times(), 0.5);
    const std::vector<double> differences = sites.differences();
    if (differences.size() < rowsOfRound / 2) throw std::runtime_error("most rows are lost");
    later.push_back(percentile(differences, 0.5));
    late.push_back(percentile(differences, 0.99));
    ratios.push_back(later.back() / bare);
    std::printf(
        "another site: %.0f us later, of 1%% %.0f us, publish and subscribe alone %.0f us\n",
        later.back(), late.back(), bare);
    std::fflush(stdout);
  }
  printFigure("us until a row is at another site, too, p50", median(later));
  printFigure("row at another site / publish and subscribe alone, p50", median(ratios));
}
