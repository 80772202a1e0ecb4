// handed_over_sockets.h: the real zordchd with sockets that were opened for it, as systemd does.
#ifndef DCH_TESTKIT_HANDED_OVER_SOCKETS_H
#define DCH_TESTKIT_HANDED_OVER_SOCKETS_H

#include <memory>
#include <string>
#include <vector>

#include "dch/net/descriptor.h"
#include "tests/support/process.h"

namespace dch::testkit {

// The two sockets of a free port of the loopback interface, as a socket unit opens them.
struct OpenedPort {
  OpenedPort();

  std::vector<int> sockets() const { return {datagrams.get(), listener.get()}; }

  Descriptor datagrams, listener;
  int number = 0;
};

// Starts zordchd with these descriptors from 3 on, in this order; they stay open here. It is told
// of them in its environment, where `environment` comes on top.
std::unique_ptr<Process> startWithDescriptors(const std::vector<int>& descriptors,
                                              const Process::Arguments& arguments,
                                              const Process::Environment& environment = {});

}  // namespace dch::testkit

#endif  // DCH_TESTKIT_HANDED_OVER_SOCKETS_H
