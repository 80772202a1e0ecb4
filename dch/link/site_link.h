// site_link.h: says to all other sites that this one is there, and hears them, on a thread of its
// own, which also passes live rows to and fro, and tells what providers there are.
#ifndef DCH_LINK_SITE_LINK_H
#define DCH_LINK_SITE_LINK_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "dch/core/epoch.h"
#include "dch/core/site_state.h"
#include "dch/link/alive_inbox.h"
#include "dch/link/exchanges.h"
#include "dch/link/link_log.h"
#include "dch/link/link_settings.h"
#include "dch/link/live_connection.h"
#include "dch/link/live_rows.h"
#include "dch/link/site_news.h"
#include "dch/link/site_providers.h"
#include "dch/link/site_watch.h"
#include "dch/link/waitable_flag.h"

namespace dch {

// What has been done since it was made, and what is known now.
struct SiteFigures {
  bool isAside = false;                // another server has this site's name, and keeps it
  std::uint64_t nameRefused = 0;       // times that another one was found to have the name
  std::uint64_t messagesRefused = 0;   // that are none of a site, or of too many
  std::uint64_t questionsRefused = 0;  // see ProviderExchange::refused
  // The other sites, by name, as of some second; never null.
  std::shared_ptr<const std::vector<SiteState>> sites;
};

// It has a connection of its own: where a user may not send or hear this the rows go to the stream
// all the same.
class SiteLink {
 public:
  // `run` names this run of the server. `log` outlives it. To be made where the channel's thread
  // has not told `rows` or `providers` anything yet.
  SiteLink(const LinkSettings& settings, const Epoch& run, std::string version,
           std::shared_ptr<LiveRows> rows, std::shared_ptr<SiteProviders> providers, LinkLog& log);
  // Waits for the end.
  ~SiteLink();
  SiteLink(const SiteLink&) = delete;
  SiteLink& operator=(const SiteLink&) = delete;

  // How far the store and the rows in the stream are; nothing without a file.
  struct Places {
    std::optional<std::int64_t> newest, published;
  };
  // For the channel's thread, every second: others are to see when that stands still, so nothing is
  // said without it.
  void tick(const Places& places) noexcept;

  // Says that it stops, and nothing afterwards. Waits for nothing. Any thread.
  void stop() noexcept;
  // As of RowPublisher. Any thread.
  bool waitForEnd(std::chrono::milliseconds atMost) { return _end.wait(atMost); }

  // Any thread.
  SiteFigures figures() const;

 private:
  using Clock = std::chrono::steady_clock;

  struct Tick {
    std::uint64_t number = 0;
    Clock::time_point time{};
    Places places{};
  };

  void run() noexcept;
  void work();
  void connect();
  void disconnect() noexcept;
  void tryLater(std::string_view reason) noexcept;
  void tryMuchLater(std::string_view reason) noexcept;
  const std::string& server() const { return _settings.servers[_turn % _settings.servers.size()]; }
  void await();
  void exchange();
  void takeHeard();
  void noteName();
  void lookAround();
  Tick lastTick() const;
  void speakIfDue();
  void speak(const Tick& tick, bool isLast);
  void speakLast() noexcept;

  const LinkSettings _settings;
  const Epoch _run;
  const std::string _version;
  const std::string _subject;
  LinkLog& _log;
  const std::shared_ptr<AliveInbox> _inbox;
  const std::shared_ptr<LiveRows> _rows;

  // The thread's own.
  SiteWatch _watch;
  SiteNews _news;
  std::unique_ptr<LiveConnection> _connection;
  std::optional<LiveConnection::Subscription> _subscription;  // of that connection
  Exchanges _exchanges;                                       // on that connection
  std::size_t _turn = 0;                                      // of the servers
  Clock::time_point _nextTry;
  Clock::time_point _connectedSince;
  bool _isGood = false;  // this connection
  std::uint64_t _count = 0;
  std::uint64_t _spokenTick = 0;  // the last one of which others have heard on this connection
  bool _maySpeak = false;         // on this connection, and hear
  Clock::time_point _nextSpeech;
  Clock::time_point _nextChanges;
  Clock::time_point _nextLook;
  Clock::time_point _nextTaking;
  bool _hasRival = false;
  bool _wasAside = false;
  std::uint64_t _namesRefused = 0;
  std::uint64_t _sitesWithoutRoom = 0;  // messages of them

  WaitableFlag _stop;
  WaitableFlag _end;
  mutable std::mutex _mutex;
  Tick _tick;
  SiteFigures _figures;

  std::thread _thread;
};

}  // namespace dch

#endif  // DCH_LINK_SITE_LINK_H
