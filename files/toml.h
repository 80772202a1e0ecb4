// toml.h: toml++, made safe for files with mistakes.
#ifndef FILES_TOML_H
#define FILES_TOML_H

// Of some mistakes in a file, such as "[+]", toml++ 3.3 asserts that they are not there, or relies
// on that where there are no assertions. So they are switched on, and tell.
#ifdef NDEBUG
#error "toml++ needs its assertions: see files/CMakeLists.txt"
#endif
#define TOML_ASSERT(isTrue) ((isTrue) ? static_cast<void>(0) : files::failTomlAssertion())

namespace files {

// Thrown by toml::parse() besides toml::parse_error.
struct TomlAssertion {};

[[noreturn]] inline void failTomlAssertion() {
  throw TomlAssertion();
}

}  // namespace files

#include <toml++/toml.h>
#include <string>
#include <string_view>

namespace files {

// Why a text is no TOML. The reason may quote it, with any bytes.
struct NoToml {
  std::size_t line;
  std::string reason;
};

// Throws NoToml, or std::bad_alloc.
toml::table parseToml(std::string_view text);

// A value as it may stand in a file, for a message: of a table or an array no more than that it is
// one. Any bytes.
std::string describeValue(const toml::node& value);

}  // namespace files

#endif  // FILES_TOML_H
