// printed_times.h: takes out what differs from run to run.
#ifndef TOOLS_TESTKIT_PRINTED_TIMES_H
#define TOOLS_TESTKIT_PRINTED_TIMES_H

#include <cctype>
#include <string>
#include <string_view>

namespace tools {

// The times that the tools print replaced by TIME, so that the rest can be compared.
inline std::string withoutTimes(std::string output) {
  constexpr std::string_view pattern = "0000-00-00T00:00:00.000Z";
  const auto timeIsAt = [&](std::size_t at) {
    for (std::size_t i = 0; i < pattern.size(); ++i) {
      const char found = output[at + i];
      if (pattern[i] == '0' ? std::isdigit(static_cast<unsigned char>(found)) == 0
                            : found != pattern[i])
        return false;
    }
    return true;
  };
  for (std::size_t at = 0; at + pattern.size() <= output.size(); ++at)
    if (timeIsAt(at)) output.replace(at, pattern.size(), "TIME");
  return output;
}

}  // namespace tools

#endif  // TOOLS_TESTKIT_PRINTED_TIMES_H
