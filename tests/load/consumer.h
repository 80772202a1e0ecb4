// consumer.h: what a consumer on the server's machine sees of the applications of all sites.
#ifndef TESTS_LOAD_CONSUMER_H
#define TESTS_LOAD_CONSUMER_H

#include <cstdlib>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>

#include "dch/testkit/clients.h"
#include "dch/testkit/messages.h"
#include "zordchcl/messages.h"

namespace load {

class Consumer {
 public:
  explicit Consumer(int port) : _client(port) {}

  // Those of all applications whose names begin so: the last number of their lines. Throws
  // std::runtime_error when there is no answer.
  long sourcesOnline(std::string_view beginning) const {
    const auto text =
        dch::testkit::textOf(_client.ask(dch::testkit::catalogueMessage(DCH_REQUEST_APPLICATIONS)));
    if (!text) throw std::runtime_error("a consumer is not answered");
    std::istringstream lines(*text);
    long sources = 0;
    for (std::string line; std::getline(lines, line);)
      if (line.starts_with(beginning)) sources += std::atol(line.c_str() + line.rfind(',') + 1);
    return sources;
  }

 private:
  const dch::testkit::UdpClient _client;
};

}  // namespace load

#endif  // TESTS_LOAD_CONSUMER_H
