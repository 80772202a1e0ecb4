// provider_source.h: a source of an application, on line and off.
#ifndef TOOLS_PROVIDER_SOURCE_H
#define TOOLS_PROVIDER_SOURCE_H

#include <chrono>
#include <optional>
#include <string>

#include "tools/provider_application.h"
#include "tools/row_encoder.h"

namespace tools {

// Requests fail as those of the application. While rows are sent a DCH that is away, or that has
// started anew, is no failure. One thread at a time.
class ProviderSource {
 public:
  // Asks for nothing yet. The application, which outlives it, is to be entered before.
  ProviderSource(ProviderApplication& application, std::string group, std::string name);

  // Ends the source as end() does, as the application's destructor does with that.
  ~ProviderSource();
  ProviderSource(const ProviderSource&) = delete;
  ProviderSource& operator=(const ProviderSource&) = delete;

  void goOnline();

  enum class Answer {
    taken,        // the DCH has the row
    none,         // the DCH does not answer; it may have the row
    startedAnew,  // the DCH did not know the source; it knows it again, but does not have the row
    notStored     // the DCH could not keep it, as when its disk is full
  };

  // Sends a row and waits for the answer. A row that was not taken is to be sent again.
  Answer send(const EncodedRow& row);

  // Takes the source off line. A DCH that does not know it any more is content.
  void end();

 private:
  using Clock = std::chrono::steady_clock;
  ZORA_Long askForHandle();
  Answer renew();
  bool handleIsFresh() const;

  ProviderApplication& _application;
  std::string _group;
  std::string _name;
  bool _online = false;
  ZORA_Long _handle = 0;
  bool _isForgotten = false;  // by the DCH, as it has said, until it is told of the source again
  // When the DCH was last seen to know the handle. One that has started anew may have given it to
  // another source, whose rows ours would become: after a while it is asked for once more.
  std::optional<Clock::time_point> _handleConfirmed;
};

}  // namespace tools

#endif  // TOOLS_PROVIDER_SOURCE_H
