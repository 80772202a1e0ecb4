// provider_session.h: a source of an application, from registration to its end.
#ifndef TOOLS_PROVIDER_SESSION_H
#define TOOLS_PROVIDER_SESSION_H

#include <functional>
#include <string>

#include "tools/row_encoder.h"
#include "zordchcl/zordchcl.h"

namespace tools {

// A request that fails ends in a Failure that names the request and the status: EX_UNAVAILABLE when
// the DCH did not answer, EX_PROTOCOL when it refused or the request failed in another way.
class ProviderSession {
 public:
  struct Names {
    std::string appl;
    std::string group;
    std::string source;
  };
  enum class AtEnd { unregister, staysRegistered };

  // Registers the application and takes the source on line.
  ProviderSession(const std::string& registrationText, Names names, AtEnd atEnd);

  // Ends the session as end() does when that was not called, without a word on failures. Does
  // nothing after a request that the DCH did not answer: it would only wait for it again.
  ~ProviderSession();
  ProviderSession(const ProviderSession&) = delete;
  ProviderSession& operator=(const ProviderSession&) = delete;

  // Sends a row and waits until the DCH has it. Returns the DCH's status, which is 0.
  ZORA_Long send(const EncodedRow& row);

  // Takes the source off line and, unless it stays registered, unregisters the application.
  void end();

 private:
  using Request = std::function<int(ZORA_Long* status)>;
  ZORA_Long require(const char* name, const Request& request);
  void endQuietly();

  Names _names;
  AtEnd _atEnd;
  bool _registered = false;
  bool _online = false;
  ZORA_Long _handle = 0;
};

}  // namespace tools

#endif  // TOOLS_PROVIDER_SESSION_H
