// toml.h: toml++, made safe for files with mistakes.
#ifndef DCH_SERVICE_TOML_H
#define DCH_SERVICE_TOML_H

// Of some mistakes in a file, such as "[+]", toml++ 3.3 asserts that they are not there, or relies
// on that where there are no assertions. So they are switched on, and tell.
#ifdef NDEBUG
#error "toml++ needs its assertions: see CMakeLists.txt"
#endif
#define TOML_ASSERT(isTrue) ((isTrue) ? static_cast<void>(0) : dch::failTomlAssertion())

namespace dch {

// Thrown by toml::parse() besides toml::parse_error.
struct TomlAssertion {};

[[noreturn]] inline void failTomlAssertion() {
  throw TomlAssertion();
}

}  // namespace dch

#include <toml++/toml.h>
#include <string>
#include <string_view>

namespace dch {

// What is in a file; `path` is for the error's text. Throws ConfigurationError, which tells the
// line.
toml::table parseToml(std::string_view text, const std::string& path);

}  // namespace dch

#endif  // DCH_SERVICE_TOML_H
