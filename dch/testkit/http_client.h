// http_client.h: asks the page's addresses over a raw socket, so that its bytes can be any and can
// be cut anywhere.
#ifndef DCH_TESTKIT_HTTP_CLIENT_H
#define DCH_TESTKIT_HTTP_CLIENT_H

#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "tests/support/sockets.h"

namespace dch::testkit {

struct HttpAnswer {
  int status = 0;                                  // 0: there was no whole answer
  std::map<std::string, std::string> fields = {};  // by their names in small letters
  std::string body = {};
  bool isWhole = true;  // not cut by the end of the connection

  std::string field(const std::string& name) const;
  nlohmann::json json() const { return nlohmann::json::parse(body, nullptr, false); }
  // The sentence of an answer that says what is wrong; empty when it is no such answer.
  std::string error() const;
};

struct LiveNews {
  std::string name;  // of the event
  nlohmann::json data;
};

class HttpClient : public StreamSocket {
 public:
  using Fields = std::vector<std::string>;  // "Name: value"

  explicit HttpClient(int port) : StreamSocket(port) {}

  // The bytes of a request for this target, with a Host unless the fields have one.
  static std::string request(const std::string& target, const Fields& fields = {},
                             const std::string& method = "GET");

  HttpAnswer get(const std::string& target, const Fields& fields = {}) const {
    return ask("GET", target, fields);
  }
  HttpAnswer ask(const std::string& method, const std::string& target,
                 const Fields& fields = {}) const;

  // The next answer; without its body when the request was for the header alone.
  HttpAnswer receiveAnswer(bool isHead = false) const;

  // Waits until the server closes; false when it does not in time. What comes is thrown away.
  bool isClosed() const;

  // Asks for live news; the header of the answer.
  HttpAnswer watch(const std::string& target, const Fields& fields = {}) const;
  // The next event behind that; nothing when there is none in time, or the stream has ended.
  std::optional<LiveNews> news() const;

 private:
  bool receiveMore() const;
  bool receiveUpTo(const std::string& end, std::string* text) const;
  HttpAnswer receiveHeader() const;
  void receiveBody(std::size_t count, HttpAnswer* answer) const;
  void receiveRest(HttpAnswer* answer) const;
  std::optional<std::string> receiveChunk() const;

  mutable std::string _received;
  mutable std::string _news;
};

// One question on a connection of its own.
HttpAnswer httpGet(int port, const std::string& target, const HttpClient::Fields& fields = {});

}  // namespace dch::testkit

#endif  // DCH_TESTKIT_HTTP_CLIENT_H
