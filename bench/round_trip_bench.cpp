// What a request costs: the round trip of dp_data, of a whole row, of dp_data through zordchd, of
// the same exchange over messaging libraries, and of bare system calls.
#include <cstdlib>

#include "bench/echo_peer.h"
#include "bench/messaging_peers.h"
#include "bench/row_exchanges.h"
#include "bench/sides.h"
#include "dch/testkit/server_process.h"

namespace {

Side sideOf(const char* name, ExchangeClient* client) {
  constexpr int tripsPerTurn = 250;
  return {name, tripsPerTurn, [client](int roundTrips) { return client->run(roundTrips); }};
}

// dp_data with every trace class on, into a file.
Exchange sendTracedRows() {
  setenv("ZORA_TRACE", "0xff", 1);
  setenv("ZORA_TRACE_FILE", "/dev/shm/round_trip_bench.trace", 1);
  return sendRows(1);
}

}  // namespace

int main(int argc, char** argv) {
  const EchoPeer echo;
  echo.becomeDch();
  const dch::testkit::ServerProcess server;
  const ZeroMqPeer zeroMq;
  const NngPeer nng;
  const NatsPeer nats;
  ExchangeClient bare([&] { return exchangeBare(echo.address()); });
  ExchangeClient row([] { return sendRows(1); });
  ExchangeClient wholeRow(buildAndSendRows);
  ExchangeClient tracedRow(sendTracedRows);
  ExchangeClient serverRow([&] { return sendRowsToServer(server.port(), "host"); });
  ExchangeClient zeroMqClient([&] { return zeroMq.connect(); });
  ExchangeClient nngClient([&] { return nng.connect(); });
  ExchangeClient natsClient([&] { return nats.connect(); });
  Medians medians = runSides(
      argc, argv,
      {sideOf("bare", &bare), sideOf("dp_data", &row), sideOf("row of 8", &wholeRow),
       sideOf("traced", &tracedRow), sideOf("zordchd", &serverRow), sideOf("ZeroMQ", &zeroMqClient),
       sideOf("nng", &nngClient), sideOf("NATS", &natsClient)});
  const double bareTime = medians["bare"];
  printFigure("round trip, bare, us", bareTime / 1000);
  printFigure("round trip, dp_data / bare", medians["dp_data"] / bareTime);
  printFigure("round trip, row of 8 attributes / bare", medians["row of 8"] / bareTime);
  printFigure("round trip, zordchd / bare", medians["zordchd"] / bareTime);
  printFigure("round trip, zordchd / ZeroMQ", medians["zordchd"] / medians["ZeroMQ"]);
  printFigure("round trip, zordchd / nng", medians["zordchd"] / medians["nng"]);
  printFigure("round trip, zordchd / NATS", medians["zordchd"] / medians["NATS"]);
  printFigure("round trip, traced at 0xff / bare", medians["traced"] / bareTime);
}
