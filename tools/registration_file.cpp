#include "tools/registration_file.h"

#include <sysexits.h>

#include "tools/common/failure.h"
#include "tools/line_input.h"

namespace tools {

suite::Registration readRegistration(const std::string& path) {
  LineInput file(path, [](int) {});
  std::string text;
  for (std::string line; file.next(&line);) text += line;
  suite::Registration registration;
  std::string error;
  if (!suite::parseRegistration(text, &registration, &error))
    throw Failure(EX_DATAERR, path + ": " + error);
  return registration;
}

}  // namespace tools
