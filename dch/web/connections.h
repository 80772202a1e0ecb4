// connections.h: the connections of browsers, no more than there is room for.
#ifndef DCH_WEB_CONNECTIONS_H
#define DCH_WEB_CONNECTIONS_H

#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/steady_timer.hpp>
#include <cstddef>
#include <functional>
#include <memory>
#include <unordered_map>

#include "dch/core/counters.h"
#include "dch/net/descriptor.h"
#include "dch/web/connection.h"

namespace dch {

// One thread, the web's.
class Connections : public ConnectionClient {
 public:
  using Respond = ConnectionClient::Respond;
  using Handle = std::function<void(const WebRequest&, Respond)>;

  // Serves `listener`. `handle` answers requests; it and `counters` outlive the context.
  Connections(boost::asio::io_context& context, Descriptor listener, const WebLimits& limits,
              Handle handle, Counters& counters);

 private:
  void accept();
  void accepted(boost::asio::ip::tcp::socket&& socket);
  bool makeRoom();
  void requested(const WebRequest& request, Respond respond) override;
  void ended(Connection* connection) override;

  const WebLimits _limits;
  const Handle _handle;
  Counters& _counters;
  boost::asio::ip::tcp::acceptor _acceptor;
  boost::asio::steady_timer _pause;
  std::unordered_map<Connection*, std::shared_ptr<Connection>> _all;
};

}  // namespace dch

#endif  // DCH_WEB_CONNECTIONS_H
