// exchanges.h: what sites exchange over the connection by which they know of each other.
#ifndef DCH_LINK_EXCHANGES_H
#define DCH_LINK_EXCHANGES_H

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "dch/core/epoch.h"
#include "dch/link/link_log.h"
#include "dch/link/live_connection.h"
#include "dch/link/live_exchange.h"
#include "dch/link/live_rows.h"
#include "dch/link/provider_exchange.h"
#include "dch/link/site_providers.h"

namespace dch {

// Live rows and providers, for each of which a user has rights of its own: where one is refused the
// other goes on, on a new connection. The link's thread alone.
class Exchanges {
 public:
  // `log` outlives it. `wake` wakes the thread, from any thread.
  Exchanges(const std::string& site, const Epoch& run, std::shared_ptr<LiveRows> rows,
            std::shared_ptr<SiteProviders> providers, LinkLog& log,
            const std::function<void()>& wake);

  // Begins what may be exchanged on this connection and is not yet, and does some of it. Throws
  // LinkError.
  void work(LiveConnection& connection);
  // Nothing is exchanged any more. To be called before the connection is gone.
  void end() noexcept;
  // Whether there is more to do now. If not the thread is woken for it, or looks by itself once in
  // a while.
  bool hasMore() noexcept { return _rows.hasMore() || _providers.hasMore(); }

  // The server has said that this user may not do something. When that is about one of them it is
  // told, and that one is not begun for a while. Returns whether it was. On the connection on which
  // that was said nothing is to go on.
  bool noteRefusal(std::string_view refusal) noexcept;

  ProviderExchange& providers() { return _providers; }

 private:
  using Clock = std::chrono::steady_clock;

  // When one of them may be begun, and since when it is.
  struct Turn {
    const char* rights;   // as a name among what was told
    const char* subject;  // that a refusal names
    const char* effect;
    std::chrono::seconds pause{};  // after the next refusal
    Clock::time_point notBefore{};
    Clock::time_point since{};
  };

  template <class Exchange>
  void begin(Exchange& exchange, Turn* turn, LiveConnection& connection);

  std::string told(std::string_view refusal, const Turn& turn) const;

  const std::string _ownName;  // as a word of a subject
  LiveExchange _rows;
  ProviderExchange _providers;
  LinkLog& _log;
  Turn _ofRows, _ofProviders;
};

}  // namespace dch

#endif  // DCH_LINK_EXCHANGES_H
