// row_collector.h: collects the rows of all other sites for a store that keeps them, on a thread of
// its own.
#ifndef DCH_LINK_ROW_COLLECTOR_H
#define DCH_LINK_ROW_COLLECTOR_H

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "dch/core/change.h"
#include "dch/core/site_state.h"
#include "dch/link/answer_box.h"
#include "dch/link/collected_site.h"
#include "dch/link/link_log.h"
#include "dch/link/link_settings.h"
#include "dch/link/row_handover.h"
#include "dch/link/row_header.h"
#include "dch/link/second_reading.h"
#include "dch/link/server_connection.h"
#include "dch/link/site_question.h"
#include "dch/link/streamed_rows.h"
#include "dch/link/subject.h"
#include "dch/link/waitable_flag.h"
#include "dch/store/file_place.h"

namespace dch {

// What has been done since it was made.
struct CollectorFigures {
  bool isConnected = false;
  std::uint64_t rowsCollected = 0;  // and kept
  std::uint64_t rowsFetched = 0;    // of those, from their sites themselves
  std::uint64_t rowsAfterGaps = 0;  // of those, that follow rows that are nowhere to be had
  std::uint64_t rowsRefused = 0;    // messages that are no rows, and rows of too many sites
  std::uint64_t failures = 0;       // times that the connection was lost, or could not be made
  std::size_t sites = 0;            // of which it has rows, or asks for them
  // Of the sites that are there, by name, as of some second; null at first. The run is the one that
  // was heard last, and up to that number of its store all is collected.
  std::shared_ptr<const std::map<std::string, RowName, std::less<>>> collected;
};

// Reads the stream, and asks a site itself for what is missing there. What it has collected is
// taken from it and kept by somebody else, some rows at a time; it reads no more than that.
class RowCollector {
 public:
  // `places`: of the state file, as of History. `wake` is called on its thread when there is
  // something to take. `log` outlives it.
  RowCollector(const LinkSettings& settings, std::function<StatePlaces()> places,
               std::function<void()> wake, LinkLog& log);
  // Waits for the end.
  ~RowCollector();
  RowCollector(const RowCollector&) = delete;
  RowCollector& operator=(const RowCollector&) = delete;

  // While another server has this site's name: it has no connection and collects nothing. Any
  // thread.
  void setAside(bool isAside) noexcept { _isAside = isAside; }

  // What the other sites say of themselves, by name: those of which it has no row it asks for
  // theirs, and rows that are missing it gives up on the word of a site that is alone. Any thread.
  void setSites(std::shared_ptr<const std::vector<SiteState>> sites) noexcept;

  // Collects nothing afterwards. Waits for nothing. Any thread.
  void stop() noexcept { _stop.set(); }
  // As of RowPublisher. Any thread.
  bool waitForEnd(std::chrono::milliseconds atMost) { return _end.wait(atMost); }

  // As of RowHandover. Any thread.
  std::vector<Change> take() { return _handover.take(); }
  void taken() noexcept { _handover.taken(); }

  // Any thread.
  CollectorFigures figures() const;

 private:
  using Clock = std::chrono::steady_clock;
  using Sites = std::map<std::string, CollectedSite, std::less<>>;

  void run() noexcept;
  void work();
  void forgetAll() noexcept;
  void findStart();
  void connect();
  void leave() noexcept;
  void disconnect(std::string_view reason) noexcept;
  const std::string& server() const { return _settings.servers[_turn % _settings.servers.size()]; }

  void readStream(std::chrono::milliseconds atMost);
  void lookForProgress();
  void noteProgress();
  void takeStreamed(const StreamedRows::Message& message, bool isAgain);
  bool hasRoom() const;
  CollectedSite* siteOf(const std::string& name);
  void takeSites();
  void keep(CollectedSite* site, const RowHeader& header, const RowSubject& subject,
            std::string_view message);
  void refuse(const std::string& why);

  void ask();
  CollectedSite* siteToAsk(Clock::time_point now);
  template <class IsWanted>
  CollectedSite* nextSite(std::string* last, IsWanted isWanted);
  void takeAnswers();
  void conclude(const SiteQuestion& question);
  void readAgain();
  void beginSecondReading();

  void handOver();
  void showFigures();

  const LinkSettings _settings;
  LinkLog& _log;

  // The thread's own.
  const std::function<StatePlaces()> _places;
  bool _knowsStart = false;
  Sites _sites;
  std::unique_ptr<ServerConnection> _connection;
  std::optional<StreamedRows> _stream;
  std::list<SiteQuestion> _questions;
  std::deque<std::unique_ptr<AnswerBox>> _boxes;  // that no question has
  std::optional<SecondReading> _secondReading;
  std::size_t _turn = 0;  // of the servers
  StreamPlace _read;      // the last message that was read
  bool _isAtEnd = false;  // as far as is known, of the stream
  bool _isGood = false;   // the server has sent rows, or has no more
  Clock::time_point _patientUntil;
  std::string _lastAsked;
  std::string _lastReadAgain;
  std::set<CollectedSite*> _touched;  // what is to be kept of them may have changed
  std::size_t _unkeptRows = 0;        // collected and not handed over yet
  std::size_t _unkeptBytes = 0;
  CollectorFigures _counted;

  std::atomic<bool> _isAside = false;
  WaitableFlag _stop;
  WaitableFlag _end;
  RowHandover _handover;
  mutable std::mutex _mutex;
  CollectorFigures _figures;
  std::shared_ptr<const std::vector<SiteState>> _sitesThere;  // that were not looked at yet

  std::thread _thread;
};

}  // namespace dch

#endif  // DCH_LINK_ROW_COLLECTOR_H
