// credentials_file.h: as whom a site is linked.
#ifndef DCH_SERVICE_CREDENTIALS_FILE_H
#define DCH_SERVICE_CREDENTIALS_FILE_H

#include <string>
#include <vector>

#include "dch/link/link_settings.h"

namespace dch {

// The file's only line, USER:PASSWORD. The password may hold colons. Throws ConfigurationError,
// which begins with the path. What is unwise about it is added to `warnings`.
LinkUser readCredentialsFile(const std::string& path, std::vector<std::string>* warnings);

}  // namespace dch

#endif  // DCH_SERVICE_CREDENTIALS_FILE_H
