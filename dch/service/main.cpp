// zordchd: the suite's data-collection server.
#include <arpa/inet.h>
#include <fcntl.h>
#include <sysexits.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <stdexcept>
#include <string>
#include <utility>

#include "dch/net/port.h"
#include "dch/service/action_list.h"
#include "dch/service/options.h"
#include "dch/service/server.h"
#include "dch/service/state_path.h"
#include "dch/store/state_file_error.h"
#include "zora/zora.h"

namespace {

// With one of them closed a socket would get its number, and the log would be sent to a client.
void keepStandardDescriptorsOpen() {
  int descriptor;
  do descriptor = open("/dev/null", O_RDWR);
  while (descriptor >= 0 && descriptor <= STDERR_FILENO);
  close(descriptor);
}

// Whatever the parent did with them.
void resetSignals() {
  std::signal(SIGPIPE, SIG_IGN);
  // Else the system would throw the results of programs away.
  std::signal(SIGCHLD, SIG_DFL);
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
}

in_addr addressToServe(const dch::Options& options) {
  in_addr address{htonl(INADDR_LOOPBACK)};
  const char* const configured = std::getenv("ZOR0_BIND_ADDR");
  const std::string text = options.bindAddress.value_or(configured != nullptr ? configured : "");
  if (!text.empty() && inet_pton(AF_INET, text.c_str(), &address) != 1)
    throw std::runtime_error("ZOR0_BIND_ADDR is not an IPv4 address: " + text);
  return address;
}

// Says why the process ends with this status.
int fail(const std::exception& error, int exitStatus) {
  std::fprintf(stderr, "zordchd: %s\n", error.what());
  return exitStatus;
}

}  // namespace

int main(int argc, char** argv) {
  keepStandardDescriptorsOpen();
  dch::Options options;
  if (const auto exitStatus = dch::readOptions(argc, argv, &options)) return *exitStatus;
  resetSignals();
  try {
    dch::ActionList actions;
    if (options.actionsFile) actions = dch::readActionList(*options.actionsFile);
    if (options.instance) ZORA_SetInstanceName(options.instance->c_str());
    dch::ServedPort port = dch::openPort(addressToServe(options), options.port);
    const std::optional<std::string> statePath =
        dch::statePath(options.store, options.port == 0, ntohs(port.address.port));
    dch::Server(std::move(port), statePath, actions, options.verbose).run();
  } catch (const dch::ActionListError& error) {
    return fail(error, EX_CONFIG);
  } catch (const dch::StateFileError& error) {
    return fail(error, EX_CONFIG);
  } catch (const std::exception& error) {
    return fail(error, EXIT_FAILURE);
  }
  return EXIT_SUCCESS;
}
