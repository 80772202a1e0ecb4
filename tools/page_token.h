// page_token.h: the token that the page of a server wants.
#ifndef TOOLS_PAGE_TOKEN_H
#define TOOLS_PAGE_TOKEN_H

#include <string>

namespace tools {

// The first line of the file. Throws a Failure: EX_NOINPUT when it cannot be read, EX_DATAERR when
// that is no token.
std::string pageTokenIn(const std::string& path);

}  // namespace tools

#endif  // TOOLS_PAGE_TOKEN_H
