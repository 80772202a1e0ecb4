#include "dch/service/server.h"

#include <gtest/gtest.h>

#include <csignal>

#include "dch/net/port.h"
#include "tests/support/process.h"

namespace dch {
namespace {

TEST(ServerTest, EndsAsTheFirstSignalAskedWhateverComesAfterIt) {
  Process process([] {
    Server(openPort({htonl(INADDR_LOOPBACK)}, 0), std::nullopt, {}, {}).run();
    for (const int each : {SIGTERM, SIGINT, SIGUSR1, SIGHUP}) std::raise(each);
    return 0;
  });
  process.waitForOutput("ready");
  process.signal(SIGTERM);
  EXPECT_EQ(process.finish().exitStatus, 0);
}

}  // namespace
}  // namespace dch
