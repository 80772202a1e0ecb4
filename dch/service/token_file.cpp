#include "dch/service/token_file.h"

#include <sys/stat.h>

#include <algorithm>

#include "dch/service/configuration_error.h"
#include "dch/service/file_content.h"

namespace dch {

namespace {

constexpr std::size_t fewCharacters = 16;
constexpr std::size_t mostCharacters = 256;

// What a cookie can hold without being written in another way.
bool isSafe(char character) {
  return character > ' ' && character < '\x7F' &&
         std::string_view("\",;\\").find(character) == std::string_view::npos;
}

bool everybodyMayRead(const std::string& path) {
  struct stat file;
  return stat(path.c_str(), &file) == 0 && (file.st_mode & S_IROTH) != 0;
}

}  // namespace

std::string readTokenFile(const std::string& path, std::vector<std::string>* warnings) {
  std::string token = contentOfFile(path);
  if (token.ends_with('\n')) token.pop_back();
  if (token.ends_with('\r')) token.pop_back();
  if (token.empty()) throw ConfigurationError(path + ": there is no token in it");
  if (!std::all_of(token.begin(), token.end(), isSafe))
    throw ConfigurationError(
        path +
        ": the token has to be one line of printable characters without blanks, quotes, "
        "commas, semicolons and backslashes");
  if (token.size() > mostCharacters)
    throw ConfigurationError(path + ": the token has more than " + std::to_string(mostCharacters) +
                             " characters");
  if (token.size() < fewCharacters)
    warnings->push_back(path + ": a token of " + std::to_string(token.size()) +
                        " characters can be guessed");
  if (everybodyMayRead(path))
    warnings->push_back(path + ": everybody on this machine may read the token");
  return token;
}

}  // namespace dch
