// What the link costs: the rows of 64 providers that a server keeps while it publishes them,
// against one that is linked with nobody; and how fast rows come from a file into the stream, and
// from there into the file of a hub, against a program that does nothing but publish as many bytes.
//   link_bench [ROUNDS]
#include <nats/nats.h>
#include <signal.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "bench/kept_state.h"
#include "bench/nats_connection.h"
#include "bench/nats_server.h"
#include "bench/providers.h"
#include "bench/row_exchanges.h"
#include "bench/sides.h"
#include "dch/testkit/messages.h"
#include "dch/testkit/server_process.h"

namespace {

using Clock = std::chrono::steady_clock;
using dch::testkit::ServerProcess;

constexpr int providers = 64;
constexpr int rowsOfProviders = 32'768;
constexpr int rowsOfFile = 200'000;
constexpr int window = 4'096;

// A nats-server with JetStream on files of its own.
class Streams {
 public:
  Streams() : _server({"--jetstream", "--store_dir", _folder.path()}) {
    require(natsConnection_JetStream(&_streams, openConnection(_server.url()), nullptr));
  }

  std::string url() const { return _server.url(); }

  // How many messages the stream has; 0 when it is not there yet.
  std::uint64_t messagesIn(const char* stream) const {
    jsStreamInfo* info = nullptr;
    if (js_GetStreamInfo(&info, _streams, stream, nullptr, nullptr) != NATS_OK) return 0;
    const std::uint64_t messages = info->State.Msgs;
    jsStreamInfo_Destroy(info);
    return messages;
  }

  void makeStream(const char* name, const char* subjects) const {
    jsStreamConfig stream;
    require(jsStreamConfig_Init(&stream));
    stream.Name = name;
    stream.Subjects = &subjects;
    stream.SubjectsLen = 1;
    stream.Storage = js_FileStorage;
    require(js_AddStream(nullptr, _streams, &stream, nullptr, nullptr));
  }

  void removeStream(const char* name) const {
    require(js_DeleteStream(_streams, name, nullptr, nullptr));
  }

  std::string linkSettings(const std::string& site = "bench") const {
    return "[link]\nservers = [\"" + _server.url() + "\"]\nsite = \"" + site + "\"\n";
  }

 private:
  const TemporaryFolder _folder;
  const NatsServer _server;
  jsCtx* _streams = nullptr;
};

// Rows a second from when the first one is there until all are.
double rateUntil(std::uint64_t all, const std::function<std::uint64_t()>& count) {
  constexpr std::chrono::milliseconds pause{2};
  std::uint64_t first = 0;
  while ((first = count()) == 0) std::this_thread::sleep_for(pause);
  const auto start = Clock::now();
  while (count() < all) std::this_thread::sleep_for(pause);
  const std::chrono::duration<double> time = Clock::now() - start;
  return static_cast<double>(all - first) / time.count();
}

double rateInto(const Streams& streams, const char* stream) {
  return rateUntil(rowsOfFile, [&] { return streams.messagesIn(stream); });
}

double rateOfLink(const Streams& streams) {
  const KeptState state(streams.linkSettings());
  state.fill(1, rowsOfFile);
  ServerProcess server(state.serverArguments());
  const double rate = rateInto(streams, "ZORD_ROWS");
  server.stop(SIGTERM);
  streams.removeStream("ZORD_ROWS");
  return rate;
}

// While the site publishes them.
double rateOfHub(const Streams& streams) {
  const KeptState ofSite(streams.linkSettings());
  ofSite.fill(1, rowsOfFile);
  const std::int64_t last = ofSite.number("SELECT max(number) FROM rows_1");
  const KeptState ofHub(streams.linkSettings("hub") + "store_remote = true\n");
  ServerProcess hub(ofHub.serverArguments());
  ServerProcess site(ofSite.serverArguments());
  const double rate = rateUntil(rowsOfFile, [&] {
    const std::int64_t known = ofHub.number("SELECT max(number) FROM remote_epochs");
    return static_cast<std::uint64_t>(std::max<std::int64_t>(known - last + rowsOfFile, 0));
  });
  if (ofHub.number("SELECT count(*) FROM remote_rows_1") != rowsOfFile)
    throw std::runtime_error("the hub has not the rows of the site");
  site.stop(SIGTERM);
  hub.stop(SIGTERM);
  streams.removeStream("ZORD_ROWS");
  return rate;
}

// A program that publishes messages of the size of the link's, as many at a time, each
// acknowledged.
void publishAll(const std::string& url) {
  natsConnection* connection = openConnection(url);
  natsSubscription* answers = nullptr;
  require(natsConnection_SubscribeSync(&answers, connection, "answers.*"));
  require(natsSubscription_SetPendingLimits(answers, -1, -1));
  const std::string body(dch::testkit::dataMessage(1, {{"attr", 'D', "x"}}).size(), 'x');
  const std::string header(128, 'x');
  int waiting = 0;
  const auto takeAnswer = [&] {
    natsMsg* answer = nullptr;
    require(natsSubscription_NextMsg(&answer, answers, 10'000));
    natsMsg_Destroy(answer);
    --waiting;
  };
  for (int number = 0; number < rowsOfFile; ++number, ++waiting) {
    while (waiting >= window) takeAnswer();
    const std::string reply = "answers." + std::to_string(number);
    natsMsg* message = nullptr;
    require(natsMsg_Create(&message, "bare.rows", reply.c_str(), body.data(),
                           static_cast<int>(body.size())));
    require(natsMsgHeader_Set(message, "Nats-Msg-Id", std::to_string(number).c_str()));
    require(natsMsgHeader_Set(message, "Zord-Row", header.c_str()));
    require(natsConnection_PublishMsg(connection, message));
    natsMsg_Destroy(message);
  }
  while (waiting > 0) takeAnswer();
}

double rateOfPublishing(const Streams& streams) {
  streams.makeStream("BARE", "bare.>");
  Worker publisher([&] { publishAll(streams.url()); });
  const double rate = rateInto(streams, "BARE");
  if (!publisher.succeeded()) throw std::runtime_error("publishing failed");
  streams.removeStream("BARE");
  return rate;
}

// Servers with 64 providers each, of which one is linked.
class Sites {
 public:
  explicit Sites(const Streams& streams) : _linkedState(streams.linkSettings()) {}

  double rateOfLinked() { return rateOf(&_linkedProviders); }
  double rateOfAlone() { return rateOf(&_aloneProviders); }

 private:
  static double rateOf(Providers* sending) {
    const std::chrono::duration<double> time = sending->run(rowsOfProviders);
    return rowsOfProviders / time.count();
  }
  static std::function<Exchange(int)> connectTo(int port) {
    return [port](int number) { return sendRowsToServer(port, "host" + std::to_string(number)); };
  }

  const KeptState _linkedState, _aloneState;
  const ServerProcess _linked{_linkedState.serverArguments()};
  const ServerProcess _alone{_aloneState.serverArguments()};
  Providers _linkedProviders{providers, connectTo(_linked.port())};
  Providers _aloneProviders{providers, connectTo(_alone.port())};
};

void measureProviders(const Streams& streams, int rounds) {
  Sites sites(streams);
  std::vector<double> linked, ratios;
  for (int round = 0; round < rounds; ++round) {
    const double alone = sites.rateOfAlone();
    linked.push_back(sites.rateOfLinked());
    ratios.push_back(linked.back() / alone);
    std::this_thread::sleep_for(std::chrono::seconds(1));  // what is left is published
  }
  printFigure("rows/s of 64 providers, linked", median(linked));
  printFigure("rows/s of 64 providers, linked / not linked", median(ratios));
}

void measureCatchingUp(const Streams& streams, int rounds) {
  std::vector<double> rates, ratios, hubRates, hubRatios;
  for (int round = 0; round < rounds; ++round) {
    const double bare = rateOfPublishing(streams);
    rates.push_back(rateOfLink(streams));
    ratios.push_back(rates.back() / bare);
    hubRates.push_back(rateOfHub(streams));
    hubRatios.push_back(hubRates.back() / bare);
    std::printf("publishing: %.0f rows/s from a file, %.0f into a hub, %.0f messages/s alone\n",
                rates.back(), hubRates.back(), bare);
    std::fflush(stdout);
  }
  printFigure("rows/s from a file into the stream", median(rates));
  printFigure("rows/s from a file into the stream / publishing alone", median(ratios));
  printFigure("rows/s from a site into a hub", median(hubRates));
  printFigure("rows/s from a site into a hub / publishing alone", median(hubRatios));
}

}  // namespace

int main(int argc, char** argv) {
  const int rounds = argc > 1 ? std::atoi(argv[1]) : 5;
  const Streams streams;
  measureCatchingUp(streams, rounds);
  measureProviders(streams, rounds);
}
