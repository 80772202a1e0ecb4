// configuration_file.h: the configuration file of zordchd, in TOML.
#ifndef DCH_SERVICE_CONFIGURATION_FILE_H
#define DCH_SERVICE_CONFIGURATION_FILE_H

#include <string>
#include <string_view>

#include "dch/service/configuration.h"

namespace dch {

// A key that is not there, or whose text is empty, is as if it were not set. Throws
// ConfigurationError with a line for everything that is wrong, the first one alone when the file is
// no TOML.
Configuration readConfigurationFile(const std::string& path);

// The same from the file's contents; `path` is for the error's text.
Configuration readConfigurationText(std::string_view text, const std::string& path);

}  // namespace dch

#endif  // DCH_SERVICE_CONFIGURATION_FILE_H
