// The configuration file: whatever is in it, it is taken within its limits, or refused with lines
// that say where.
#include "dch/service/configuration_file.h"

#include <string>
#include <string_view>

#include "dch/service/configuration_error.h"
#include "fuzz/support/require.h"
#include "fuzz/support/told_faults.h"

namespace {

constexpr std::string_view path = "F";

void checkTaken(const dch::Configuration& taken) {
  fuzz::require(!taken.port || (*taken.port >= 0 && *taken.port <= 65'535), "a port");
  fuzz::require(!taken.instance || taken.instance->size() <= 20, "a name of an instance");
  fuzz::require(taken.limits.streams.connections >= 1, "connections");
  fuzz::require(taken.limits.streams.messageBytes >= 64, "a message");
  fuzz::require(taken.retention.days >= 1 && taken.retention.megabytes >= 1, "retention");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t count) {
  const std::string_view text(reinterpret_cast<const char*>(bytes), count);
  try {
    checkTaken(dch::readConfigurationText(text, std::string(path)));
  } catch (const dch::ConfigurationError& error) {
    fuzz::requireFaultsOf(text, error.what());
  }
  return 0;
}
