// registration.h: the registration text of a provider, read by the provider library before it is
// sent and by the server when it arrives. zorp.h tells the clauses.
#ifndef SUITE_REGISTRATION_H
#define SUITE_REGISTRATION_H

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace suite {

constexpr std::size_t longestApplName = 20;
constexpr std::size_t applKeyLength = 3;
constexpr std::size_t longestName = 32;     // of a group or an attribute
constexpr int largestAttributeSize = 4096;  // in bytes

struct RegisteredAttribute {
  std::string name;
  char letter;       // one of A C G L N D R T I S
  int size;          // the value's largest size in bytes, 1 to largestAttributeSize
  std::string help;  // may be empty
};

struct RegisteredGroup {
  std::string name;
  std::vector<RegisteredAttribute> attributes;  // one or more, each name once
};

struct Registration {
  std::string applName;
  std::string applKey;
  std::string type = "NODP";            // one of ZORA_DPTypeNames
  std::string help;                     // may be empty
  std::vector<RegisteredGroup> groups;  // one or more, each name once
  // The text in its shortest form: the clauses in the order given, without the blanks and line ends
  // around clauses and parts and without empty help parts at the end of an attribute.
  std::string text;
};

// Reads a registration text. Returns true and fills `out`, or returns false and stores in `error`
// one line without a line end that names the clause and the reason, such as
//   clause 4 <attr:load1,Q,4>: unknown attribute letter
// `out` is untouched then. The text may come from anywhere; the error holds no control characters.
// Throws std::bad_alloc without memory and nothing else. Any thread may call.
bool parseRegistration(std::string_view text, Registration* out, std::string* error);

}  // namespace suite

#endif  // SUITE_REGISTRATION_H
