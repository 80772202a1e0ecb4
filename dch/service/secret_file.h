// secret_file.h: a file with a secret in it.
#ifndef DCH_SERVICE_SECRET_FILE_H
#define DCH_SERVICE_SECRET_FILE_H

#include <string>
#include <vector>

namespace dch {

// The file's only line, which is a `what`, such as "token". Throws ConfigurationError, which
// begins with the path, also when it is empty. That others may read it is added to `warnings`.
std::string readSecretFile(const std::string& path, const std::string& what,
                           std::vector<std::string>* warnings);

}  // namespace dch

#endif  // DCH_SERVICE_SECRET_FILE_H
