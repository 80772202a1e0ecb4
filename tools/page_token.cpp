#include "tools/page_token.h"

#include <sysexits.h>

#include <algorithm>

#include "tools/common/failure.h"
#include "tools/line_input.h"

namespace tools {

std::string pageTokenIn(const std::string& path) {
  LineInput file(path, [](int) {});
  std::string token;
  file.next(&token);
  while (!token.empty() && (token.back() == '\n' || token.back() == '\r')) token.pop_back();
  const bool isToken = !token.empty() && std::all_of(token.begin(), token.end(), [](char each) {
    return each > ' ' && each < '\x7f';
  });
  if (!isToken) throw Failure(EX_DATAERR, path + ": its first line is no token");
  return token;
}

}  // namespace tools
