// row_publisher.h: publishes the rows that the store keeps, on a thread of its own.
#ifndef DCH_LINK_ROW_PUBLISHER_H
#define DCH_LINK_ROW_PUBLISHER_H

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string_view>
#include <thread>

#include "dch/link/link_log.h"
#include "dch/link/link_settings.h"
#include "dch/link/row_header.h"
#include "dch/link/row_stream.h"
#include "dch/link/row_window.h"
#include "dch/link/waitable_flag.h"
#include "dch/store/kept_rows_source.h"
#include "dch/store/rows_in_order.h"

namespace dch {

class RowFetches;

// What has been done since it was made.
struct LinkFigures {
  bool isConnected = false;
  std::optional<std::int64_t> published;  // position up to which nothing is left to be published
  std::uint64_t rowsPublished = 0;
  std::uint64_t rowsTooLarge = 0;  // for the stream, which they never reach
  std::uint64_t failures = 0;      // times that the link was lost, or could not be made
};

// Goes on where the file says that it stopped, and with a link that was lost as soon as it can be
// made again, for ever. It reads no more of the file than it can send, and nobody waits for it. One
// thread, but for what says otherwise.
class RowPublisher {
 public:
  // `log` outlives it.
  RowPublisher(const LinkSettings& settings, const KeptRowsSource& source, LinkLog& log);
  // Waits for the end.
  ~RowPublisher();
  RowPublisher(const RowPublisher&) = delete;
  RowPublisher& operator=(const RowPublisher&) = delete;

  // While another server has this site's name: it has no connection, publishes nothing and answers
  // nobody. Any thread.
  void setAside(bool isAside) noexcept { _isAside = isAside; }

  // Publishes what is left, if that takes no more than a second, and nothing afterwards. Waits for
  // nothing. Any thread.
  void stop() noexcept { _stop.set(); }

  // Waits for the end after stop(), so long at most, and returns whether it has come. Half a second
  // more than stop() says is enough unless the name of a server is being looked for: the system
  // takes its time for that. Whoever cannot wait for it leaves the object as it is for ever, with
  // its log: it touches nothing else any more. Any thread.
  bool waitForEnd(std::chrono::milliseconds atMost) { return _end.wait(atMost); }

  // Any thread.
  LinkFigures figures() const;

 private:
  using Clock = std::chrono::steady_clock;

  void run() noexcept;
  bool isOver();
  void work();
  void findStart();
  void connect();
  void leave() noexcept;
  void disconnect(std::string_view reason) noexcept;
  const std::string& server() const { return _settings.servers[_turn % _settings.servers.size()]; }
  void readRows();
  void add(const OrderedRow& row);
  bool sendRows();
  void takeAnswers(std::chrono::milliseconds atMost);
  void takeAnswer(const RowStream::Answer& answer);
  void notePublished();
  void noteProgress();
  void giveUp(std::int64_t number, const std::string& what);
  void lookForProgress();
  void showFigures();

  const LinkSettings _settings;
  const KeptRowsSource _source;
  LinkLog& _log;

  // The thread's own.
  RowsInOrder _rows;
  std::optional<RowWindow> _window;  // from when it is known where to begin
  std::unique_ptr<RowStream> _stream;
  std::unique_ptr<RowFetches> _fetches;  // while there is a stream, and by its connection
  std::size_t _turn = 0;                 // of the servers
  std::int64_t _readUpTo = 0;
  bool _hasMore = true;              // behind that
  std::optional<RowName> _previous;  // the last row that was read, or up to where all was published
  Clock::time_point _lastRead;
  Clock::time_point _nextLook;
  Clock::time_point _lastTaken;  // or since when there is something to take
  Clock::time_point _connectedSince;
  bool _isGood = false;     // this connection
  bool _isRefused = false;  // as far as is known, what is sent to the stream
  std::uint64_t _rowsPublished = 0;
  std::uint64_t _rowsTooLarge = 0;
  std::optional<Clock::time_point> _stopAt;

  std::atomic<bool> _isAside = false;
  WaitableFlag _stop;
  WaitableFlag _end;
  mutable std::mutex _mutex;
  LinkFigures _figures;

  std::thread _thread;
};

}  // namespace dch

#endif  // DCH_LINK_ROW_PUBLISHER_H
