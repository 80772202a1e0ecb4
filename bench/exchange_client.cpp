#include "bench/exchange_client.h"

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <stdexcept>

#include "bench/port_channel.h"
#include "zordchcl/zordchcl.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::int64_t failed = -1;

std::int64_t measure(const Exchange& exchange, int roundTrips) {
  Clock::duration total{};
  for (int i = 0; i < roundTrips; ++i) {
    exchange.prepare();
    const auto start = Clock::now();
    if (!exchange.roundTrip()) return failed;
    total += Clock::now() - start;
  }
  return std::chrono::nanoseconds(total).count();
}

[[noreturn]] void serve(int commands, const Exchange& exchange) {
  for (;;) {
    int roundTrips;
    receiveAll(commands, &roundTrips, sizeof roundTrips);
    const std::int64_t nanoseconds = measure(exchange, roundTrips);
    sendAll(commands, &nanoseconds, sizeof nanoseconds);
  }
}

}  // namespace

char* buildRow() {
  static const char value[81] =
      "a value of the length that makes the message a hundred and "
      "twenty-eight bytes";
  char* row = nullptr;
  ZORA_Long size = 0;
  ZORA_Long status = 0;
  dp_formatData(&status, &row, &size, "attr", value, sizeof value - 1, 'D');
  if (size != requestSize) throw std::logic_error("the row has another size");
  return row;
}

char* copyRow() {
  static const std::unique_ptr<const char[]> row(buildRow());
  auto* const copy = new char[DCH_WORK_BUFFER_SIZE];
  std::copy_n(row.get(), static_cast<std::size_t>(DCH_WORK_BUFFER_SIZE), copy);
  return copy;
}

ExchangeClient::ExchangeClient(const std::function<Exchange()>& connect) {
  int ends[2];
  if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0)
    throw std::runtime_error("no socket to command a client");
  _commands = ends[0];
  _process.emplace([&] {
    close(ends[0]);
    serve(ends[1], connect());
  });
  close(ends[1]);
}

ExchangeClient::~ExchangeClient() {
  _process.reset();  // before it sees that nobody commands it any more, and complains
  close(_commands);
}

std::chrono::nanoseconds ExchangeClient::run(int roundTrips) {
  start(roundTrips);
  return finish();
}

void ExchangeClient::start(int roundTrips) {
  sendAll(_commands, &roundTrips, sizeof roundTrips);
}

std::chrono::nanoseconds ExchangeClient::finish() {
  std::int64_t nanoseconds = failed;
  receiveAll(_commands, &nanoseconds, sizeof nanoseconds);
  if (nanoseconds == failed) throw std::runtime_error("a round trip failed");
  return std::chrono::nanoseconds(nanoseconds);
}
