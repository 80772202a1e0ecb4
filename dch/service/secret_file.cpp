#include "dch/service/secret_file.h"

#include <sys/stat.h>

#include "dch/service/configuration_error.h"
#include "dch/service/file_content.h"

namespace dch {

namespace {

bool everybodyMayRead(const std::string& path) {
  struct stat file;
  return stat(path.c_str(), &file) == 0 && (file.st_mode & S_IROTH) != 0;
}

}  // namespace

std::string readSecretFile(const std::string& path, const std::string& what,
                           std::vector<std::string>* warnings) {
  std::string secret = contentOfFile(path);
  if (secret.ends_with('\n')) secret.pop_back();
  if (secret.ends_with('\r')) secret.pop_back();
  if (secret.empty()) throw ConfigurationError(path + ": there is no " + what + " in it");
  if (everybodyMayRead(path))
    warnings->push_back(path + ": everybody on this machine may read the " + what);
  return secret;
}

}  // namespace dch
