#include "dch/testkit/handed_over_sockets.h"

#include <fcntl.h>

#include <stdexcept>

#include "dch/net/port_sockets.h"
#include "tests/support/sockets.h"

namespace dch::testkit {

OpenedPort::OpenedPort() {
  // Another test may have the port for streams.
  for (int attempt = 0; attempt < 100 && !listener.isOpen(); ++attempt) {
    sockaddr_in address = loopbackAddress(0);
    int error;
    datagrams = openDatagramSocket(&address, &error);
    listener = openListener(&address, &error);
    number = ntohs(address.sin_port);
  }
  if (!datagrams.isOpen() || !listener.isOpen()) throw std::runtime_error("no port for a test");
  for (const int each : sockets()) fcntl(each, F_SETFL, fcntl(each, F_GETFL) & ~O_NONBLOCK);
}

std::unique_ptr<Process> startWithDescriptors(const std::vector<int>& descriptors,
                                              const Process::Arguments& arguments,
                                              const Process::Environment& environment) {
  // Only the new process itself can say which number it has.
  std::string script = "export LISTEN_PID=${LISTEN_PID-$$} LISTEN_FDS=${LISTEN_FDS-" +
                       std::to_string(descriptors.size()) + "}; exec \"$@\"";
  std::vector<Descriptor> inherited;
  int number = 3;
  for (const int each : descriptors) {
    constexpr int outOfTheWay = 100;
    inherited.emplace_back(fcntl(each, F_DUPFD, outOfTheWay));
    const std::string source = std::to_string(inherited.back().get());
    script += ' ' + std::to_string(number++) + "<&" + source + ' ' + source + "<&-";
  }
  Process::Arguments words{"-c", script, "bash", ZORDCHD_PATH};
  words.insert(words.end(), arguments.begin(), arguments.end());
  return std::make_unique<Process>("/bin/bash", words, environment);
}

}  // namespace dch::testkit
