// connection.h: one connection of a browser or of a program that speaks HTTP.
#ifndef DCH_WEB_CONNECTION_H
#define DCH_WEB_CONNECTION_H

#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/core/tcp_stream.hpp>
#include <boost/beast/http/empty_body.hpp>
#include <boost/beast/http/parser.hpp>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "dch/web/answer.h"
#include "dch/web/web_limits.h"
#include "dch/web/web_request.h"

namespace dch {

class Connection;

class ConnectionClient {
 public:
  using Respond = std::function<void(Answer&&)>;

  // Answers by `respond`, once, within the call or later; it does nothing when the connection is
  // gone. When nobody has it any more and nothing was answered, the connection ends.
  virtual void requested(const WebRequest& request, Respond respond) = 0;
  // The connection is done with.
  virtual void ended(Connection* connection) = 0;

 protected:
  ~ConnectionClient() = default;
};

// Answers one request after the other, in their order. What is under way keeps it alive. One
// thread, the web's.
class Connection : public std::enable_shared_from_this<Connection> {
 public:
  // So many wait in the loop at a time: to read, to write, and for an answer.
  static constexpr std::size_t mostTimers = 3;

  // `client` outlives the loop that it is called by.
  Connection(boost::asio::ip::tcp::socket&& socket, const ConnectionLimits& limits,
             ConnectionClient& client);

  void start();

  // At once.
  void close();

  using Moment = std::optional<std::chrono::steady_clock::time_point>;

  // Since when it has owed a whole request, or its end after the last answer; nothing while one is
  // answered.
  Moment waitingSince() const { return _waitingSince; }

  // Since when it has not read what it is sent; nothing while there is nothing to send.
  Moment unreadSince() const { return _unreadSince; }

 private:
  using Error = boost::system::error_code;
  using Parser = boost::beast::http::request_parser<boost::beast::http::empty_body>;

  void waitForRequest();
  void readHeader();
  void headerRead(const Error& error);
  void refuse(const Error& error);
  void ask();
  bool owes(std::uint64_t serial) const {
    return _client != nullptr && _serial == serial && !_isAnswered;
  }
  WebRequest request() const;
  bool hasBody() const;
  void respond(Answer&& answer);
  std::string headerOf(const Answer& answer) const;
  void take(Piece&& piece);
  void send(SharedText text) { _unsent.push_back(std::move(text)); }
  void sendChunk(const Piece& piece);
  void write();
  void written(std::size_t count);
  void goOn();
  void watchPeer();
  void waitUntilGone();
  void sayGoodbye();
  void discardRest();
  void end();
  class Reply;
  class Waiting;
  template <class Call>
  auto whileThere(Call call);
  template <class Call>
  void orEnd(Call call);

  const ConnectionLimits _limits;
  ConnectionClient* _client;  // null when it has ended
  boost::beast::tcp_stream _stream;
  boost::beast::flat_buffer _received;
  std::optional<Parser> _parser;
  Moment _waitingSince;
  Moment _unreadSince;

  // Of the request that is answered.
  std::uint64_t _serial = 0;
  bool _isAnswered = false;
  boost::asio::steady_timer _patience;
  bool _isHead = false;
  bool _isChunked = false;
  bool _staysOpen = true;
  std::unique_ptr<Pieces> _pieces;
  bool _isLastPiece = true;
  std::deque<SharedText> _unsent;
  std::size_t _sentOfFirst = 0;
  std::size_t _discarded = 0;
};

}  // namespace dch

#endif  // DCH_WEB_CONNECTION_H
