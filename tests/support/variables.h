// variables.h: what whoever runs the tests says to them.
#ifndef TESTS_SUPPORT_VARIABLES_H
#define TESTS_SUPPORT_VARIABLES_H

#include <cstdlib>

// The number that a variable of the environment is set to.
inline unsigned numberFrom(const char* variable, unsigned otherwise) {
  const char* const given = std::getenv(variable);
  return given != nullptr ? static_cast<unsigned>(std::strtoul(given, nullptr, 10)) : otherwise;
}

#endif  // TESTS_SUPPORT_VARIABLES_H
