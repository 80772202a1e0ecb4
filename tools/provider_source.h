// provider_session.h: a source of an application, from registration to its end.
#ifndef TOOLS_PROVIDER_SESSION_H
#define TOOLS_PROVIDER_SESSION_H

#include <chrono>
#include <functional>
#include <optional>
#include <string>

#include "tools/row_encoder.h"
#include "zordchcl/DCHclient.h"

namespace tools {

// A request that fails ends in a Failure that names the request and the status: EX_UNAVAILABLE when
// the DCH did not answer, EX_PROTOCOL when it refused or the request failed in another way. While
// rows are sent a DCH that is away, or that has started anew, is no failure.
class ProviderSession {
 public:
  struct Names {
    std::string appl;
    std::string group;
    std::string source;
  };
  enum class AtEnd { unregister, staysRegistered };

  // Registers the application and takes the source on line.
  ProviderSession(std::string registrationText, Names names, AtEnd atEnd);

  // Ends the session as end() does when that was not called, without a word on failures. Does
  // nothing after a request that the DCH did not answer: it would only wait for it again.
  ~ProviderSession();
  ProviderSession(const ProviderSession&) = delete;
  ProviderSession& operator=(const ProviderSession&) = delete;

  enum class Answer {
    taken,       // the DCH has the row
    none,        // the DCH does not answer; it may have the row
    startedAnew  // the DCH did not know the source; it knows it again, but does not have the row
  };

  // Sends a row and waits for the answer. A row that was not taken is to be sent again.
  Answer send(const EncodedRow& row);

  // Takes the source off line and, unless it stays registered, unregisters the application. A DCH
  // that knows neither any more is content.
  void end();

 private:
  using Clock = std::chrono::steady_clock;
  using Request = std::function<ZORA_Long(DCHclient& client, ZORA_Long* status)>;
  static ZORA_Long ask(const Request& request);
  ZORA_Long registerApplication();
  ZORA_Long goOnline();
  Answer renew();
  bool handleIsFresh() const;
  void requireEnd(const char* name, ZORA_Long status);
  void endQuietly();

  std::string _registrationText;
  Names _names;
  AtEnd _atEnd;
  bool _registered = false;
  bool _online = false;
  ZORA_Long _handle = 0;
  // When the DCH was last seen to know the handle. One that has started anew may have given it to
  // another source, whose rows ours would become: after a while it is asked for once more.
  std::optional<Clock::time_point> _handleConfirmed;
};

}  // namespace tools

#endif  // TOOLS_PROVIDER_SESSION_H
