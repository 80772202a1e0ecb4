// live_exchange.h: sends the live rows of a server, and asks for those of others.
#ifndef DCH_LINK_LIVE_EXCHANGE_H
#define DCH_LINK_LIVE_EXCHANGE_H

#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "dch/core/text_map.h"
#include "dch/link/live_connection.h"
#include "dch/link/live_rows.h"

namespace dch {

// What the link's thread does for them. That thread alone.
class LiveExchange {
 public:
  explicit LiveExchange(std::shared_ptr<LiveRows> rows);
  ~LiveExchange() { end(); }
  LiveExchange(const LiveExchange&) = delete;
  LiveExchange& operator=(const LiveExchange&) = delete;

  // From now on rows go out and come in. Throws LinkError.
  void begin(LiveConnection& connection);
  // Rows neither go out nor come in any more. To be called before the connection is gone.
  void end() noexcept;
  bool isOn() const { return _connection != nullptr; }

  // Sends what there is, some hundred rows at most, and asks for what is wanted. Throws LinkError.
  void work();

  // Whether there is more to send now. If not it is rung for, as LiveRows::await says.
  bool hasMore() noexcept;

 private:
  void sendRows();
  void ask();

  const std::shared_ptr<LiveRows> _rows;
  const std::shared_ptr<LiveInbox> _incoming, _answers;
  LiveConnection* _connection = nullptr;
  std::string _inbox;  // with a dot behind it
  std::optional<LiveConnection::Subscription> _answered;
  TextMap<LiveConnection::Subscription> _topics;
};

}  // namespace dch

#endif  // DCH_LINK_LIVE_EXCHANGE_H
