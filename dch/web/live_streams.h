// live_streams.h: rows and changes of status, told to those who watch, as they come.
#ifndef DCH_WEB_LIVE_STREAMS_H
#define DCH_WEB_LIVE_STREAMS_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "dch/core/counters.h"
#include "dch/net/alarm.h"
#include "dch/web/answer.h"
#include "dch/web/channel_view.h"

namespace dch {

// Each event is written once for all who watch its topic. They are sent together, some times in
// 100 ms: what comes then waits for the next time. Whoever does not read is ended and counted; what
// he has missed is in the store. One thread, the web's.
class LiveStreams : public LiveClient {
 public:
  static constexpr std::size_t mostStreams = 192;           // others are to have connections, too
  static constexpr std::size_t mostWaitingBytes = 2 << 20;  // of each
  // What all of them together are told of messages a second, each an equal part: to send more than
  // a page can show costs the channel time.
  static constexpr std::uint64_t mostBytesASecond = std::uint64_t{128} << 20;
  static constexpr std::chrono::milliseconds pause{20};
  static constexpr std::chrono::seconds sign{10};  // of life, when nothing comes

  // All outlive it. `view` is set before anything else happens.
  LiveStreams(EventLoop& loop, Counters& counters);
  ~LiveStreams();
  LiveStreams(const LiveStreams&) = delete;
  LiveStreams& operator=(const LiveStreams&) = delete;
  void setView(ChannelView* view) { _view = view; }

  // Calls `begin` with a stream of the events of these topics when they are watched; with null when
  // there is no room for another one.
  void open(const std::vector<std::string>& topics,
            std::function<void(std::unique_ptr<Pieces>)> begin);

  // Ends all of them: who reads them is not to any more.
  void endAll();

  void happened(const LiveEvent& event) noexcept override;
  void told() noexcept override;

 private:
  class Stream;
  class Handle;
  struct Topic;
  struct Opening;
  // Events of one topic, between those of others.
  struct Run {
    std::uint64_t topic;
    std::string text = {};
  };

  void tellLost(Topic* topic);
  void write(std::uint64_t topic, const std::string& text);
  void begin();
  void flush();
  void send(std::string&& text, const std::vector<std::shared_ptr<Stream>>& streams);
  void giveSign();
  void deliverAll();
  void remove(Stream* stream) noexcept;
  std::uint64_t watch();
  void share() noexcept;

  Counters& _counters;
  ChannelView* _view = nullptr;
  std::unordered_map<std::string, std::unique_ptr<Topic>> _topics;
  std::unordered_map<std::uint64_t, Topic*> _byNumber;
  std::vector<Run> _written;
  std::vector<std::shared_ptr<Stream>> _streams;
  std::vector<Opening> _openings;
  std::uint64_t _lastNumber = 0;
  Alarm _flushing;
  Alarm _signs;
  Alarm::Clock::time_point _lastFlush;
};

}  // namespace dch

#endif  // DCH_WEB_LIVE_STREAMS_H
