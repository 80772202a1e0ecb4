// What a request costs: the round trip of dp_data, of a whole row, of dp_data through zordchd, of
// the same exchange over messaging libraries, and of bare system calls.
#include "bench/echo_peer.h"
#include "bench/messaging_peers.h"
#include "bench/row_exchanges.h"
#include "bench/sides.h"
#include "dch/testkit/server_process.h"

namespace {

void addClient(const char* name, ExchangeClient* client) {
  constexpr int tripsPerTurn = 250;
  addSide(name, tripsPerTurn, [client](int roundTrips) { return client->run(roundTrips); });
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
  ExchangeClient serverRow([&] { return sendRowsToServer(server.port(), "host"); });
  ExchangeClient zeroMqClient([&] { return zeroMq.connect(); });
  ExchangeClient nngClient([&] { return nng.connect(); });
  ExchangeClient natsClient([&] { return nats.connect(); });
  addClient("bare", &bare);
  addClient("dp_data", &row);
  addClient("row of 8", &wholeRow);
  addClient("zordchd", &serverRow);
  addClient("ZeroMQ", &zeroMqClient);
  addClient("nng", &nngClient);
  addClient("NATS", &natsClient);
  runSides(argc, argv,
           {{"round trip, dp_data / bare", "dp_data", "bare"},
            {"round trip, row of 8 / bare", "row of 8", "bare"},
            {"round trip, zordchd / bare", "zordchd", "bare"},
            {"round trip, zordchd / ZeroMQ", "zordchd", "ZeroMQ"},
            {"round trip, zordchd / nng", "zordchd", "nng"},
            {"round trip, zordchd / NATS", "zordchd", "NATS"}});
}
