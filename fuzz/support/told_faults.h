// told_faults.h: what the reader of a file has to say about one that it refuses.
#ifndef FUZZ_SUPPORT_TOLD_FAULTS_H
#define FUZZ_SUPPORT_TOLD_FAULTS_H

#include <algorithm>
#include <cstddef>
#include <sstream>
#include <string>
#include <string_view>

#include "fuzz/support/require.h"

namespace fuzz {

// `told` is about the file "F" with this text: lines such as "F:3: there is no section [x]".
inline void requireFaultsOf(std::string_view text, const std::string& told) {
  const auto lines = static_cast<unsigned long>(std::count(text.begin(), text.end(), '\n')) + 1;
  std::istringstream faults(told);
  for (std::string each; std::getline(faults, each);) {
    require(each.starts_with("F:"), "the file is named");
    std::size_t digits = 0;
    const unsigned long line = std::stoul(each.substr(2), &digits);
    require(line >= 1 && line <= lines, "the line is one of the file's");
    require(each.compare(2 + digits, 2, ": ") == 0 && each.size() > digits + 4,
            "something is said");
    require(
        std::all_of(each.begin(), each.end(), [](char one) { return one >= ' ' && one <= '~'; }),
        "what is shown drives no terminal");
  }
}

}  // namespace fuzz

#endif  // FUZZ_SUPPORT_TOLD_FAULTS_H
