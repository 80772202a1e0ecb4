#include "dch/web/web_port.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace dch {
namespace {

TEST(WebAddress, IsReadAndWritten) {
  for (const char* each : {"127.0.0.1:1980", "0.0.0.0:0", "[::1]:1980", "[::]:65535"}) {
    const auto address = parseWebAddress(each);
    ASSERT_TRUE(address) << each;
    EXPECT_EQ(each, address->text());
  }
}

TEST(WebAddress, IsRefusedWhenItIsNone) {
  for (const char* each :
       {"", ":", ":1980", "1980", "127.0.0.1", "127.0.0.1:", "127.0.0.1:x", "127.0.0.1:65536",
        "127.0.0.1:-1", "127.0.0.1:1 ", "localhost:1980", "::1:1980", "[::1]", "[127.0.0.1]:1",
        "[::1:1", "127.1:1", "127.0.0.1:+1"})
    EXPECT_FALSE(parseWebAddress(each)) << each;
}

TEST(WebPort, TakesAFreePortAndSaysWhich) {
  const WebPort port = openWebPort({"127.0.0.1", 0});
  EXPECT_TRUE(port.listener.isOpen());
  EXPECT_NE(0, port.address.port);
}

TEST(WebPort, SaysWhyItCannotBeHad) {
  const WebPort taken = openWebPort({"127.0.0.1", 0});
  try {
    openWebPort(taken.address);
    FAIL() << "two have the same port";
  } catch (const std::runtime_error& error) {
    EXPECT_EQ("cannot serve the page on " + taken.address.text() + ": Address already in use",
              std::string(error.what()));
  }
}

}  // namespace
}  // namespace dch
