// token_file.h: the token that a browser has to show.
#ifndef DCH_SERVICE_TOKEN_FILE_H
#define DCH_SERVICE_TOKEN_FILE_H

#include <string>
#include <vector>

namespace dch {

// The file's only line. Throws ConfigurationError, which begins with the path, also for a token
// that a browser cannot keep. What is unwise about it is added to `warnings`.
std::string readTokenFile(const std::string& path, std::vector<std::string>* warnings);

}  // namespace dch

#endif  // DCH_SERVICE_TOKEN_FILE_H
