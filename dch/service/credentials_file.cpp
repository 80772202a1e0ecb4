#include "dch/service/credentials_file.h"

#include "dch/service/configuration_error.h"
#include "dch/service/secret_file.h"

namespace dch {

LinkUser readCredentialsFile(const std::string& path, std::vector<std::string>* warnings) {
  const std::string line = readSecretFile(path, "user and password", warnings);
  const std::size_t colon = line.find(':');
  const bool isOneLine = line.find_first_of(std::string("\r\n\0", 3)) == std::string::npos;
  if (!isOneLine || colon == 0 || colon == std::string::npos || colon + 1 == line.size())
    throw ConfigurationError(path + ": it has to be one line, USER:PASSWORD");
  return {line.substr(0, colon), line.substr(colon + 1)};
}

}  // namespace dch
