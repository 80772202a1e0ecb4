#include "dch/service/options.h"

#include <gtest/gtest.h>
#include <sysexits.h>

#include <vector>

namespace dch {
namespace {

std::optional<int> read(std::vector<const char*> arguments, Options* options) {
  arguments.insert(arguments.begin(), "zordchd");
  return readOptions(static_cast<int>(arguments.size()), arguments.data(), options);
}

TEST(OptionsTest, LeavesEverythingOpenWithoutArguments) {
  Options options;
  EXPECT_EQ(read({}, &options), std::nullopt);
  EXPECT_EQ(options.port, std::nullopt);
  EXPECT_EQ(options.bindAddress, std::nullopt);
  EXPECT_EQ(options.instance, std::nullopt);
  EXPECT_EQ(options.actionsFile, std::nullopt);
  EXPECT_FALSE(options.verbose);
}

TEST(OptionsTest, TakesEachOption) {
  Options options;
  EXPECT_EQ(read({"--port", "65535", "--bind", "0.0.0.0", "--instance", "12345678901234567890",
                  "--actions", "actions.conf", "--verbose"},
                 &options),
            std::nullopt);
  EXPECT_EQ(options.port, 65535);
  EXPECT_EQ(options.bindAddress, "0.0.0.0");
  EXPECT_EQ(options.instance, "12345678901234567890");
  EXPECT_EQ(options.actionsFile, "actions.conf");
  EXPECT_TRUE(options.verbose);
}

TEST(OptionsTest, RefusesBadValuesAndNamesThem) {
  for (const auto& [arguments, named] :
       std::vector<std::pair<std::vector<const char*>, const char*>>{
           {{"--port", "65536"}, "65536"},
           {{"--port", "-1"}, "-1"},
           {{"--port", "web"}, "web"},
           {{"--port"}, "--port"},
           {{"--bind", "localhost"}, "localhost"},
           {{"--bind", "127.0.0.256"}, "127.0.0.256"},
           {{"--bind", ""}, "--bind"},
           {{"--instance", "123456789012345678901"}, "123456789012345678901"},
           {{"--instance", "  "}, "--instance"},
           {{"--store", ""}, "--store: the name is empty"},
           {{"--actions", ""}, "--actions: the name is empty"},
           {{"--config", ""}, "--config: the name is empty"},
           {{"--fast"}, "--fast"},
           {{"extra"}, "extra"}}) {
    Options options;
    ::testing::internal::CaptureStderr();
    EXPECT_EQ(read(arguments, &options), EX_USAGE) << named;
    EXPECT_NE(::testing::internal::GetCapturedStderr().find(named), std::string::npos) << named;
  }
}

}  // namespace
}  // namespace dch
