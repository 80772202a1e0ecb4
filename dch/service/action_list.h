// action_list.h: the actions that the operator lets consumers start.
#ifndef DCH_SERVICE_ACTION_LIST_H
#define DCH_SERVICE_ACTION_LIST_H

#include <iosfwd>
#include <string>

#include "dch/core/programs.h"

namespace dch {

// Reads lines "NAME PROGRAM [ARGUMENT...]", split at blanks; what follows a '#' at the start of a
// word is a comment. There is no quoting, and no shell ever sees a line. Throws ConfigurationError,
// such as
//   actions.conf:3: program 'restart' is not an absolute path
ActionList readActionList(const std::string& path);

// The same from a stream; `path` is for the error's text.
ActionList readActionList(std::istream& input, const std::string& path);

}  // namespace dch

#endif  // DCH_SERVICE_ACTION_LIST_H
