#include "dch/service/token_file.h"

#include <algorithm>

#include "dch/service/configuration_error.h"
#include "dch/service/secret_file.h"

namespace dch {

namespace {

constexpr std::size_t fewCharacters = 16;
constexpr std::size_t mostCharacters = 256;

// What a cookie can hold without being written in another way.
bool isSafe(char character) {
  return character > ' ' && character < '\x7F' &&
         std::string_view("\",;\\").find(character) == std::string_view::npos;
}

}  // namespace

std::string readTokenFile(const std::string& path, std::vector<std::string>* warnings) {
  std::string token = readSecretFile(path, "token", warnings);
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
  return token;
}

}  // namespace dch
