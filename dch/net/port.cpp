#include "dch/net/port.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <utility>

#include "dch/journal.h"
#include "dch/net/port_sockets.h"
#include "dch/patience.h"
#include "suite/product_settings.h"
#include "zordsock/port_choice.h"
#include "zordsock/settings.h"

namespace dch {

namespace {

// The system keeps for each of them what it keeps for one, which is some 500 small rows: together
// the rows of some thousand clients that all send on the full second.
constexpr std::size_t datagramSocketCount = 16;

// Where a free port is looked for: below those that Linux gives to sockets that ask for any, so
// that a server that is started again finds its port free.
constexpr int lowestPort = 10'000;
constexpr int portCount = 22'000;
constexpr int mostAttempts = 1'000;
// Prime and far from 1, so that processes with neighbouring numbers stay apart.
constexpr int stride = 7'919;

[[noreturn]] void refuse(in_addr address, const zordsock::PortChoice& choice) {
  const std::string what = "cannot serve the DCH port " + std::to_string(choice.port) + " of " +
                           PeerAddress(address).addressText().data();
  if (choice.isInUse())
    throw std::runtime_error(what + ": " + std::strerror(EADDRINUSE) +
                             ": another DCH is already active on it");
  const int error = choice.datagramError != 0 ? choice.datagramError : choice.streamError;
  throw std::runtime_error(what +
                           (choice.datagramError != 0 ? " for datagrams: " : " for streams: ") +
                           std::strerror(error));
}

// Binds to one address of the machine.
class OpenOnAddress : public zordsock::PortChoiceSteps {
 public:
  explicit OpenOnAddress(in_addr address) : _address(address) {}

  int open(ZOR0_SocketKind kind, unsigned short port, ZOR0_SocketFlag, sockaddr_in* address,
           int* error) override {
    *address = {};
    address->sin_family = AF_INET;
    address->sin_addr = _address;
    address->sin_port = htons(port);
    return (kind == SOCK_KIND_TCP ? openListener(address, error)
                                  : openDatagramSocket(address, error))
        .release();
  }

 private:
  const in_addr _address;
};

bool isTaken(const zordsock::PortChoice& choice) {
  return choice.datagramError == EADDRINUSE || choice.streamError == EADDRINUSE;
}

zordsock::PortChoice chooseFreePort(OpenOnAddress& steps) {
  zordsock::PortChoice choice;
  for (int attempt = 0; attempt < mostAttempts; ++attempt) {
    const int port = lowestPort + (getpid() % portCount + attempt * stride) % portCount;
    const zordsock::PortRule onlyThis{static_cast<unsigned short>(port), false, false};
    choice = choosePort(onlyThis, steps);
    if (choice.isBound() || !isTaken(choice)) break;
  }
  return choice;
}

zordsock::PortChoice chooseBySettings(std::optional<int> port, OpenOnAddress& steps,
                                      std::vector<PortSetting>* settings) {
  const unsigned short configured = port ? static_cast<unsigned short>(*port)
                                         : zordsock::configuredPort(std::getenv("ZORA_DCH_PORT"));
  if (configured == 0) throw std::runtime_error("the configured port is not a number");
  const zordsock::PortRule rule = zordsock::readPortRule(configured);
  zordsock::PortChoice choice;
  tryForAMoment([&] {
    choice = choosePort(rule, steps);
    return choice.isBound() || !isTaken(choice);
  });
  if (choice.isBound() && rule.hasCandidates()) {
    settings->push_back({zordsock::itemPort, choice.port});
    if (!rule.startsAtConfiguredPort)
      settings->push_back({zordsock::itemPortOffset, choice.offset});
  }
  return choice;
}

}  // namespace

ServedPort openPort(in_addr address, std::optional<int> port) {
  OpenOnAddress steps(address);
  std::vector<PortSetting> settings;
  const zordsock::PortChoice choice =
      port == 0 ? chooseFreePort(steps) : chooseBySettings(port, steps, &settings);
  Descriptor datagramSocket(choice.datagramSocket), listener(choice.streamSocket);
  if (!choice.isBound()) refuse(address, choice);
  return {PeerAddress(choice.address),
          shareDatagramPort(std::move(datagramSocket), datagramSocketCount), std::move(listener),
          std::move(settings)};
}

void publish(const std::vector<PortSetting>& settings) {
  for (const auto& [item, number] : settings) {
    const std::string text = std::to_string(number);
    if (ZOR0_UpdateProductSpec(item, text.c_str()) == 0)
      printLines(Priority::warning, withName("warning: cannot write " + text +
                                             " into product setting " + std::to_string(item)));
  }
}

}  // namespace dch
