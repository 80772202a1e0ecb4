// configuration_error.h: what is wrong with what the operator wrote.
#ifndef DCH_SERVICE_CONFIGURATION_ERROR_H
#define DCH_SERVICE_CONFIGURATION_ERROR_H

#include <stdexcept>
#include <string>

namespace dch {

// One sentence, or several with a line each, such as
//   zordchd.toml:3: port in [channel] has to be a whole number from 0 to 65535, not 70000
class ConfigurationError : public std::runtime_error {
  using std::runtime_error::runtime_error;
};

}  // namespace dch

#endif  // DCH_SERVICE_CONFIGURATION_ERROR_H
