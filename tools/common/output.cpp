#include "tools/common/output.h"

#include <sysexits.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "tools/common/failure.h"

namespace tools {

bool printLines(const std::string& lines) {
  if (std::fwrite(lines.data(), 1, lines.size(), stdout) == lines.size() &&
      std::fflush(stdout) == 0)
    return true;
  if (errno == EPIPE) return false;
  throw Failure(EX_IOERR, std::string("cannot write the output: ") + strerror(errno));
}

}  // namespace tools
