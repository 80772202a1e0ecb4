// environment.h: what the process was started with.
#ifndef DCH_SERVICE_ENVIRONMENT_H
#define DCH_SERVICE_ENVIRONMENT_H

#include <cstdlib>
#include <string>

namespace dch {

// Empty where there is no such variable. While the process has one thread.
inline std::string variable(const char* name) {
  const char* const value = std::getenv(name);
  return value != nullptr ? value : "";
}

}  // namespace dch

#endif  // DCH_SERVICE_ENVIRONMENT_H
