#include "bench/row_exchanges.h"

#include <sys/select.h>
#include <sys/socket.h>

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <thread>
#include <vector>

#include "dch/testkit/messages.h"
#include "zordchcl/zordchcl.h"

namespace {

constexpr int rowAttributes = 8;
constexpr short sampleType = 17;

}  // namespace

bool roundTripBare(int socket, const sockaddr_in& peer) {
  constexpr char request[requestSize] = {};
  sendto(socket, request, requestSize, 0, reinterpret_cast<const sockaddr*>(&peer), sizeof peer);
  fd_set readable;
  FD_ZERO(&readable);
  FD_SET(socket, &readable);
  timeval wait{30, 0};
  if (select(socket + 1, &readable, nullptr, nullptr, &wait) != 1) return false;
  char answer[8192];
  sockaddr_in sender;
  socklen_t senderLength = sizeof sender;
  return recvfrom(socket, answer, sizeof answer, 0, reinterpret_cast<sockaddr*>(&sender),
                  &senderLength) == answerSize;
}

Exchange exchangeBare(const sockaddr_in& peer) {
  const int client = socket(AF_INET, SOCK_DGRAM, 0);
  return {[] { delete[] buildRow(); }, [client, peer] { return roundTripBare(client, peer); }};
}

Exchange sendRows(ZORA_Long handle, char* (*makeRow)()) {
  auto row = std::make_shared<char*>(nullptr);
  return {[row, makeRow] { *row = makeRow(); },
          [row, handle] {
            ZORA_Long status = 1;
            const int result = dp_data(&status, handle, sampleType, row.get());
            if (result == 0 && status == 0) return true;
            throw std::runtime_error("a row ends with " + std::to_string(result) + " and status " +
                                     std::to_string(status));
          }};
}

Exchange buildAndSendRows() {
  return {[] { delete[] buildRow(); },
          [] {
            char* row = nullptr;
            ZORA_Long size = 0;
            ZORA_Long status = 1;
            for (ZORA_Long value = 0; value < rowAttributes; ++value)
              dp_formatData(&status, &row, &size, "attribute", &value, sizeof value, 'N');
            return dp_data(&status, 1, sampleType, &row) == 0 && status == 0;
          }};
}

Exchange sendRowsToServer(int port, const std::string& source, const std::string& application) {
  return sendRows(goOnLine(port, registrationOf(application), source, application));
}

Exchange afterAPause(std::chrono::milliseconds pause, Exchange exchange) {
  exchange.prepare = [prepare = exchange.prepare, pause] {
    std::this_thread::sleep_for(pause);
    prepare();
  };
  return exchange;
}

std::string registrationOf(const std::string& application) {
  return "appl:" + application + ",BEN;group:group;attr:attr,D,96;";
}

std::string rowMessage(ZORA_Long handle) {
  constexpr std::size_t valueSize = 80;  // makes it as long as the others
  return dch::testkit::dataMessage(handle, {{"attr", 'D', std::string(valueSize, 'x')}});
}

std::string registrationOfNumbers(int numbers) {
  std::string text = "appl:NUMBERS,NUM;group:group;";
  for (int number = 0; number < numbers; ++number)
    text += "attr:number" + std::to_string(number) + ",N,4;";
  return text;
}

std::string rowOfNumbers(ZORA_Long handle, int row, int numbers) {
  std::vector<dch::testkit::Value> values;
  for (int number = 0; number < numbers; ++number) {
    const auto value = static_cast<std::int32_t>(std::int64_t{row} * 7'919 % 100'000 + number);
    values.push_back({"number" + std::to_string(number), 'N', dch::testkit::bytesOf(value)});
  }
  return dch::testkit::dataMessage(handle, values);
}

void askServer(int port) {
  setenv("ZORA_DCH_ADDR", "127.0.0.1", 1);
  setenv("ZORA_DCH_PORT", std::to_string(port).c_str(), 1);
}

ZORA_Long goOnLine(int port, const std::string& registration, const std::string& source,
                   const std::string& application) {
  askServer(port);
  ZORA_Long status = 1, handle = 0;
  dp_register(&status, registration.c_str());
  if (status == 0) dp_online(&status, &handle, application.c_str(), "group", source.c_str());
  if (status != 0) throw std::runtime_error("the server does not take the registration");
  return handle;
}
