// zordchd: the suite's data-collection server.
#include <fcntl.h>
#include <sysexits.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <new>
#include <optional>
#include <string>
#include <utility>

#include "dch/journal.h"
#include "dch/net/signals.h"
#include "dch/service/configuration.h"
#include "dch/service/configuration_error.h"
#include "dch/service/options.h"
#include "dch/service/served_port.h"
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
  for (const int each : dch::ignoredSignals) std::signal(each, SIG_IGN);
  // Else the system would throw the results of programs away.
  std::signal(SIGCHLD, SIG_DFL);
  // What the operator may send at any time must not end the process before it is handled: it waits
  // until the server runs.
  sigset_t early;
  sigemptyset(&early);
  for (const int each : {SIGHUP, SIGUSR1}) sigaddset(&early, each);
  sigprocmask(SIG_SETMASK, &early, nullptr);
}

// Says why the process ends with this status.
int fail(const std::exception& error, int exitStatus) {
  try {
    dch::printLines(dch::Priority::error, dch::withName(error.what()));
  } catch (const std::bad_alloc&) {
    std::fprintf(stderr, "zordchd: %s\n", error.what());
  }
  return exitStatus;
}

void serve(const dch::Options& options, dch::Configuration&& configuration) {
  if (configuration.instance) ZORA_SetInstanceName(configuration.instance->c_str());
  dch::ServedPort port = dch::openServedPort(configuration.port, configuration.bindAddress);
  const std::optional<std::string> statePath =
      dch::statePath(configuration.store, configuration.port == 0, ntohs(port.address.port));
  dch::Server(std::move(port), statePath, options, std::move(configuration)).run();
}

}  // namespace

int main(int argc, char** argv) {
  resetSignals();
  keepStandardDescriptorsOpen();
  try {
    dch::Options options;
    if (const auto exitStatus = dch::readOptions(argc, argv, &options)) return *exitStatus;
    dch::Configuration configuration = dch::readConfiguration(options);
    for (const std::string& each : configuration.warnings)
      dch::printLines(dch::Priority::warning, dch::withName("warning: " + each));
    if (options.isCheck)
      std::printf("zordchd: %s is in order\n", options.configurationFile->c_str());
    else
      serve(options, std::move(configuration));
  } catch (const dch::ConfigurationError& error) {
    return fail(error, EX_CONFIG);
  } catch (const dch::StateFileError& error) {
    return fail(error, EX_CONFIG);
  } catch (const std::bad_alloc&) {
    std::fputs("zordchd: out of memory\n", stderr);
    return EXIT_FAILURE;
  } catch (const std::exception& error) {
    return fail(error, EXIT_FAILURE);
  }
  return EXIT_SUCCESS;
}
