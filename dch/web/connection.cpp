#include "dch/web/connection.h"

#include <algorithm>
#include <array>
#include <boost/asio/buffer.hpp>
#include <boost/beast/core/error.hpp>
#include <boost/beast/http/error.hpp>
#include <boost/beast/http/field.hpp>
#include <boost/beast/http/read.hpp>
#include <boost/beast/http/status.hpp>
#include <boost/beast/http/verb.hpp>
#include <boost/optional/optional.hpp>
#include <cstdio>
#include <ctime>
#include <new>

#include "dch/web/http_status.h"

namespace dch {

namespace http = boost::beast::http;
using std::chrono::steady_clock;

namespace {

constexpr unsigned http11 = 11;
constexpr std::size_t mostReceivedBytes = 65'536;
constexpr std::size_t readBytes = 4'096;
constexpr std::size_t mostDiscardedBytes = 1'048'576;
constexpr std::size_t mostBuffers = 16;

// The same with each answer. What is shown comes from here alone, is framed by nobody, runs no
// script but the page's own and tells other sites nothing.
constexpr char commonFields[] =
    "Cache-Control: no-store\r\n"
    "Content-Security-Policy: default-src 'none'; script-src 'self'; style-src 'self'; connect-src "
    "'self'; img-src 'self' data:; base-uri 'none'; form-action 'none'; frame-ancestors 'none'\r\n"
    "Cross-Origin-Resource-Policy: same-origin\r\n"
    "Referrer-Policy: no-referrer\r\n"
    "X-Content-Type-Options: nosniff\r\n";

std::string field(const http::request_header<>& header, http::field name) {
  return std::string(header[name]);
}

// As HTTP writes it. A page takes the difference from its own clock into account.
std::string dateText() {
  const std::time_t present = std::time(nullptr);
  std::tm parts{};
  gmtime_r(&present, &parts);
  std::array<char, 64> text;
  std::strftime(text.data(), text.size(), "%a, %d %b %Y %H:%M:%S GMT", &parts);
  return text.data();
}

std::string textOf(std::size_t chunkBytes) {
  std::array<char, 24> text;
  return {text.data(),
          static_cast<std::size_t>(std::snprintf(text.data(), text.size(), "%zx\r\n", chunkBytes))};
}

}  // namespace

// Keeps the connection alive while something is under way. Thrown away with that, for want of
// memory on the way, it ends the connection, which would wait for ever.
class Connection::Waiting {
 public:
  explicit Waiting(std::shared_ptr<Connection> connection) : _connection(std::move(connection)) {}
  ~Waiting() {
    if (_connection != nullptr) _connection->close();
  }
  Waiting(Waiting&&) noexcept = default;
  Waiting& operator=(Waiting&&) = delete;

  std::shared_ptr<Connection> end() { return std::move(_connection); }

 private:
  std::shared_ptr<Connection> _connection;
};

// What is called when something has ended, unless the connection has ended meanwhile.
template <class Call>
auto Connection::whileThere(Call call) {
  return [waiting = Waiting(shared_from_this()), call = std::move(call)](
             const Error& error, std::size_t count = 0) mutable {
    const auto self = waiting.end();
    if (self->_client != nullptr) self->orEnd([&] { call(error, count); });
  };
}

// For want of memory it is this connection that ends, whoever called.
template <class Call>
void Connection::orEnd(Call call) {
  try {
    call();
  } catch (const std::bad_alloc&) {
    close();
  }
}

Connection::Connection(boost::asio::ip::tcp::socket&& socket, const ConnectionLimits& limits,
                       ConnectionClient& client)
    : _limits(limits),
      _client(&client),
      _stream(std::move(socket)),
      _received(mostReceivedBytes),
      _patience(_stream.get_executor()) {}

void Connection::start() {
  Error ignored;
  _stream.socket().set_option(boost::asio::ip::tcp::no_delay(true), ignored);
  readHeader();
}

void Connection::close() {
  Error ignored;
  _stream.socket().close(ignored);
  end();
}

// The next one may take its time, and may be here already.
void Connection::waitForRequest() {
  if (_received.size() > 0) return readHeader();
  _waitingSince = steady_clock::now();
  _stream.expires_after(_limits.idle);
  _stream.async_read_some(_received.prepare(readBytes),
                          whileThere([this](const Error& error, std::size_t count) {
                            if (error) return close();
                            _received.commit(count);
                            readHeader();
                          }));
}

void Connection::readHeader() {
  _waitingSince = steady_clock::now();
  _parser.emplace();
  _parser->header_limit(_limits.headerBytes);
  _parser->body_limit(boost::none);  // none is read
  _stream.expires_after(_limits.header);
  http::async_read_header(
      _stream, _received, *_parser,
      whileThere([this](const Error& error, std::size_t) { headerRead(error); }));
}

void Connection::headerRead(const Error& error) {
  _waitingSince.reset();
  if (error) return refuse(error);
  const http::request_header<>& header = _parser->get();
  _isHead = header.method() == http::verb::head;
  _staysOpen = _parser->keep_alive() && !hasBody();
  if (header.count(http::field::host) > 1)
    return respond(errorAnswer(http_status::badRequest, "the header has more than one Host"));
  if (header.version() >= http11 && header.count(http::field::host) == 0)
    return respond(errorAnswer(http_status::badRequest, "the header has no Host"));
  ask();
}

// What is to be answered to a request: an answer that comes too late is none.
class Connection::Reply {
 public:
  explicit Reply(Connection& connection)
      : _connection(connection.weak_from_this()), _serial(connection._serial) {}
  ~Reply() {
    if (const auto owing = find()) owing->close();
  }
  Reply(const Reply&) = delete;
  Reply& operator=(const Reply&) = delete;

  void give(Answer&& answer) const {
    if (const auto owing = find()) owing->orEnd([&] { owing->respond(std::move(answer)); });
  }

 private:
  // Null when it owes nothing any more.
  std::shared_ptr<Connection> find() const {
    auto connection = _connection.lock();
    return connection != nullptr && connection->owes(_serial) ? connection : nullptr;
  }

  const std::weak_ptr<Connection> _connection;
  const std::uint64_t _serial;
};

void Connection::ask() {
  const std::uint64_t serial = ++_serial;
  _isAnswered = false;
  _client->requested(request(), [reply = std::make_shared<const Reply>(*this)](Answer&& answer) {
    reply->give(std::move(answer));
  });
  if (!owes(serial)) return;
  _patience.expires_after(_limits.answer);
  _patience.async_wait(whileThere([this, serial](const Error& error, std::size_t) {
    if (!error && owes(serial))
      respond(errorAnswer(http_status::serviceUnavailable, "it takes too long"));
  }));
}

// What is no HTTP is answered so that a person who tries finds out, all else with silence.
void Connection::refuse(const Error& error) {
  const bool isWrong =
      error.category() == http::make_error_code(http::error::bad_method).category();
  if (!isWrong || error == http::error::end_of_stream || error == http::error::partial_message)
    return close();
  _isHead = false;
  _staysOpen = false;
  if (error == http::error::header_limit || error == http::error::buffer_overflow)
    respond(
        errorAnswer(http_status::headerTooLarge,
                    "the header has more than " + std::to_string(_limits.headerBytes) + " bytes"));
  else
    respond(errorAnswer(http_status::badRequest, "this is no request of HTTP: " + error.message()));
}

WebRequest Connection::request() const {
  const http::request_header<>& header = _parser->get();
  return {.isRead = _isHead || header.method() == http::verb::get,
          .target = std::string(header.target()),
          .host = header.count(http::field::host) > 0
                      ? std::optional(field(header, http::field::host))
                      : std::nullopt,
          .authorization = field(header, http::field::authorization),
          .cookies = field(header, http::field::cookie),
          .accept = field(header, http::field::accept),
          .origin = field(header, http::field::origin),
          .fetchSite = std::string(header["Sec-Fetch-Site"]),
          .fetchMode = std::string(header["Sec-Fetch-Mode"])};
}

bool Connection::hasBody() const {
  return _parser->chunked() || _parser->content_length().value_or(0) > 0;
}

void Connection::respond(Answer&& answer) {
  _isAnswered = true;
  _patience.cancel();
  const bool is11 = _parser->get().version() >= http11;
  _isChunked = answer.pieces != nullptr && is11;
  if (answer.pieces != nullptr && (!is11 || answer.pieces->areEndless())) _staysOpen = false;
  send(shareText(headerOf(answer)));
  if (!_isHead && answer.body != nullptr) send(std::move(answer.body));
  _isLastPiece = _isHead || answer.pieces == nullptr;
  if (!_isLastPiece) _pieces = std::move(answer.pieces);
  if (_pieces != nullptr && _pieces->areEndless()) {
    _pieces->setEnd([this] { close(); });
    watchPeer();
  }
  write();
}

std::string Connection::headerOf(const Answer& answer) const {
  const auto status = static_cast<http::status>(answer.status);
  std::string header = "HTTP/1.1 " + std::to_string(answer.status) + ' ';
  header += std::string(http::obsolete_reason(status)) + "\r\n" + commonFields;
  header += "Date: " + dateText() + "\r\n";
  header += "Content-Type: " + answer.type + "\r\n";
  for (const auto& [name, value] : answer.fields) (header += name) += ": " + value + "\r\n";
  if (answer.pieces == nullptr)
    header += "Content-Length: " + std::to_string(answer.body ? answer.body->size() : 0) + "\r\n";
  else if (_isChunked)
    header += "Transfer-Encoding: chunked\r\n";
  return header + (_staysOpen ? "\r\n" : "Connection: close\r\n\r\n");
}

void Connection::take(Piece&& piece) {
  if (piece.follows == Piece::Follows::failure) return close();  // it is seen to be cut
  _isLastPiece = piece.follows == Piece::Follows::nothing;
  sendChunk(piece);
  write();
}

void Connection::sendChunk(const Piece& piece) {
  static const SharedText lineEnd = shareText("\r\n");
  static const SharedText lastChunk = shareText("0\r\n\r\n");
  std::size_t bytes = 0;
  for (const SharedText& each : piece.texts) bytes += each->size();
  if (bytes > 0) {
    if (_isChunked) send(shareText(textOf(bytes)));
    for (const SharedText& each : piece.texts) send(each);
    if (_isChunked) send(lineEnd);
  }
  if (_isLastPiece && _isChunked) send(lastChunk);
}

void Connection::write() {
  _unreadSince.reset();
  if (_unsent.empty()) return goOn();
  _unreadSince = steady_clock::now();
  std::array<boost::asio::const_buffer, mostBuffers> buffers;
  const std::size_t count = std::min(_unsent.size(), buffers.size());
  for (std::size_t i = 0; i < count; ++i) buffers.at(i) = boost::asio::buffer(*_unsent[i]);
  buffers.front() += _sentOfFirst;
  _stream.expires_after(_limits.standstill);
  _stream.async_write_some(buffers, whileThere([this](const Error& error, std::size_t sent) {
                             if (error) return close();
                             written(sent);
                             write();
                           }));
}

void Connection::written(std::size_t count) {
  _sentOfFirst += count;
  while (!_unsent.empty() && _sentOfFirst >= _unsent.front()->size()) {
    _sentOfFirst -= _unsent.front()->size();
    _unsent.pop_front();
  }
}

// All that there was is sent.
void Connection::goOn() {
  if (!_isLastPiece)
    return _pieces->next([this](Piece&& piece) { orEnd([&] { take(std::move(piece)); }); });
  _pieces.reset();
  if (_staysOpen)
    waitForRequest();
  else
    sayGoodbye();
}

// What it still sends is nothing that is wanted; when it stops it may have gone.
void Connection::watchPeer() {
  _stream.expires_never();
  _received.clear();
  _stream.async_read_some(_received.prepare(readBytes),
                          whileThere([this](const Error& error, std::size_t) {
                            if (!error) return watchPeer();
                            if (error != boost::asio::error::eof) return close();
                            waitUntilGone();
                            _pieces->peerHasEnded();
                          }));
}

// One that is gone answers what it is sent with an error, which nobody reads.
void Connection::waitUntilGone() {
  _stream.socket().async_wait(boost::asio::ip::tcp::socket::wait_error,
                              whileThere([this](const Error&, std::size_t) { close(); }));
}

// With what it sent unread, the system would take back what it has not read yet.
void Connection::sayGoodbye() {
  Error ignored;
  _stream.socket().shutdown(boost::asio::ip::tcp::socket::shutdown_send, ignored);
  _waitingSince = steady_clock::now();
  _stream.expires_after(_limits.farewell);
  _discarded = 0;
  discardRest();
}

void Connection::discardRest() {
  _received.clear();
  _stream.async_read_some(_received.prepare(readBytes),
                          whileThere([this](const Error& error, std::size_t count) {
                            _discarded += count;
                            if (error || _discarded > mostDiscardedBytes) return close();
                            discardRest();
                          }));
}

void Connection::end() {
  _patience.cancel();
  _pieces.reset();
  if (ConnectionClient* const client = std::exchange(_client, nullptr)) client->ended(this);
}

}  // namespace dch
