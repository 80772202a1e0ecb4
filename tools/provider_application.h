// provider_application.h: an application of which sources are on line, from registration to end.
#ifndef TOOLS_PROVIDER_APPLICATION_H
#define TOOLS_PROVIDER_APPLICATION_H

#include <atomic>
#include <functional>
#include <string>

#include "suite/registration.h"
#include "zordchcl/DCHclient.h"

namespace tools {

// A request that fails ends in a Failure that names the request and the status: EX_UNAVAILABLE when
// the DCH did not answer, EX_PROTOCOL when it refused or the request failed in another way. Any
// thread may call any function, but for end().
class ProviderApplication {
 public:
  enum class AtEnd { unregister, staysRegistered };

  // Asks for nothing yet.
  ProviderApplication(const suite::Registration& registration, AtEnd atEnd);

  // Ends the application as end() does when that was not called, without a word on failures. Does
  // nothing when the DCH did not answer the last request: it would only be waited for again.
  ~ProviderApplication();
  ProviderApplication(const ProviderApplication&) = delete;
  ProviderApplication& operator=(const ProviderApplication&) = delete;

  const std::string& name() const { return _name; }

  void enter();

  // Registers it with a DCH that may have forgotten it. Returns the status. Its sources that are on
  // line stay so.
  ZORA_Long enterAgain();

  // Unregisters the application, unless it stays registered. A DCH that does not know it any more
  // is content. To be called when no other thread uses it.
  void end();

  using Request = std::function<ZORA_Long(DCHclient& client, ZORA_Long* status)>;
  // For requests of its sources: returns the status.
  ZORA_Long ask(const Request& request);

  // Whether the DCH did not answer the last request.
  bool isUnanswered() const { return _isUnanswered; }

 private:
  std::string _registrationText;
  std::string _name;
  AtEnd _atEnd;
  std::atomic<bool> _isRegistered{false};
  std::atomic<bool> _isUnanswered{false};
};

// What a DCH answers that knew the source or its application once.
bool isForgotten(ZORA_Long status);

// Throws the Failure of a request that has ended with this status, unless that is 0.
void require(const char* request, ZORA_Long status);

}  // namespace tools

#endif  // TOOLS_PROVIDER_APPLICATION_H
