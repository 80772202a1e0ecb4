// registration_file.h: the file with the text that registers an application.
#ifndef TOOLS_REGISTRATION_FILE_H
#define TOOLS_REGISTRATION_FILE_H

#include <string>

#include "suite/registration.h"

namespace tools {

// Reads it; "-" is standard input. Throws a Failure: EX_NOINPUT when it cannot be read, EX_DATAERR
// when it is no registration.
suite::Registration readRegistration(const std::string& path);

}  // namespace tools

#endif  // TOOLS_REGISTRATION_FILE_H
