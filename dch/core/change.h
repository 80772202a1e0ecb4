// change.h: what the server comes to know. Each change owns what it tells, and all that the server
// knows follows from the changes that were kept, in their order.
#ifndef DCH_CORE_CHANGE_H
#define DCH_CORE_CHANGE_H

#include <cstdint>
#include <list>
#include <string>
#include <variant>

#include "dch/core/deferrals.h"
#include "dch/core/message.h"
#include "suite/registration.h"

namespace dch {

struct Registered {
  suite::Registration registration;
};

struct Unregistered {
  std::string application;
};

struct WentOnline {
  std::string application;
  std::string group;
  std::string source;
  ZORA_Long handle = 0;
};

struct WentOffline {
  ZORA_Long handle = 0;
};

struct Row {
  ZORA_Long handle = 0;
  Time time = 0;
  std::string message;    // as it came
  bool isCurrent = true;  // its source has not gone on line since
};

struct Deferred {
  std::list<Deferral> deferral;  // one, as a node that joins the others without asking for memory
};

// Kept before its program runs. An earlier result of the same ID counts no more. The parameters of
// an action are not among its changes: they may hold a password.
struct ActionStarted {
  ZORA_Long id = 0;
  std::string name;
  std::string owner;
  Time time = 0;
};

struct ActionEnded {
  ZORA_Long id = 0;
  Time time = 0;
  ZORA_Long status = 0;
};

// The rows up to this position of the store were published: they need not be again. It is not among
// what the server knows, and is not told when that is loaded.
struct RowsPublished {
  std::int64_t position = 0;
};

using Change = std::variant<Registered, Unregistered, WentOnline, WentOffline, Row, Deferred,
                            ActionStarted, ActionEnded, RowsPublished>;

}  // namespace dch

#endif  // DCH_CORE_CHANGE_H
