// The configuration file: whatever is in it, it is taken within its limits, or refused with lines
// that say where.
#include "dch/service/configuration_file.h"

#include <algorithm>
#include <sstream>
#include <string>
#include <string_view>

#include "dch/service/configuration_error.h"
#include "fuzz/support/require.h"

namespace {

constexpr std::string_view path = "F";

bool isPrintable(char character) {
  return character >= ' ' && character <= '~';
}

// Such as "F:3: there is no section [x]".
void checkProblem(const std::string& problem, unsigned long lines) {
  fuzz::require(problem.starts_with("F:"), "the file is named");
  std::size_t digits = 0;
  const unsigned long line = std::stoul(problem.substr(2), &digits);
  fuzz::require(line >= 1 && line <= lines, "the line is one of the file's");
  fuzz::require(problem.compare(2 + digits, 2, ": ") == 0 && problem.size() > digits + 4,
                "something is said");
  fuzz::require(std::all_of(problem.begin(), problem.end(), isPrintable),
                "what is shown drives no terminal");
}

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
  const auto lines = static_cast<unsigned long>(std::count(text.begin(), text.end(), '\n')) + 1;
  try {
    checkTaken(dch::readConfigurationText(text, std::string(path)));
  } catch (const dch::ConfigurationError& error) {
    std::istringstream problems(error.what());
    for (std::string each; std::getline(problems, each);) checkProblem(each, lines);
  }
  return 0;
}
