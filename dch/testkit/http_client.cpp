#include "dch/testkit/http_client.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>

namespace dch::testkit {

namespace {

std::string inSmallLetters(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](unsigned char each) { return static_cast<char>(std::tolower(each)); });
  return text;
}

bool hasHost(const HttpClient::Fields& fields) {
  return std::any_of(fields.begin(), fields.end(), [](const std::string& each) {
    return inSmallLetters(each).starts_with("host:");
  });
}

// Takes what stands before the separator, or all of it, off the text.
std::string takeUpTo(const std::string& separator, std::string* text) {
  const std::size_t end = std::min(text->find(separator), text->size());
  const std::string part = text->substr(0, end);
  text->erase(0, end + separator.size());
  return part;
}

}  // namespace

std::string HttpAnswer::field(const std::string& name) const {
  const auto found = fields.find(name);
  return found != fields.end() ? found->second : "";
}

std::string HttpAnswer::error() const {
  const nlohmann::json said = json();
  return said.is_object() && said.size() == 1 ? said.value("error", "") : "";
}

std::string HttpClient::request(const std::string& target, const Fields& fields,
                                const std::string& method) {
  std::string text = method + ' ' + target + " HTTP/1.1\r\n";
  if (!hasHost(fields)) text += "Host: 127.0.0.1\r\n";
  for (const std::string& each : fields) text += each + "\r\n";
  return text + "\r\n";
}

HttpAnswer HttpClient::ask(const std::string& method, const std::string& target,
                           const Fields& fields) const {
  send(request(target, fields, method));
  return receiveAnswer(method == "HEAD");
}

HttpAnswer HttpClient::receiveAnswer(bool isHead) const {
  HttpAnswer answer = receiveHeader();
  if (answer.status == 0 || isHead) return answer;
  if (const std::string length = answer.field("content-length"); !length.empty()) {
    receiveBody(std::strtoul(length.c_str(), nullptr, 10), &answer);
  } else if (answer.field("transfer-encoding") == "chunked") {
    std::optional<std::string> chunk;
    while ((chunk = receiveChunk()) && !chunk->empty()) answer.body += *chunk;
    answer.isWhole = chunk.has_value();
  } else {
    receiveRest(&answer);
  }
  return answer;
}

bool HttpClient::isClosed() const {
  _received.clear();
  while (receiveMore()) _received.clear();
  return tryReceive(0) == "";
}

HttpAnswer HttpClient::watch(const std::string& target, const Fields& fields) const {
  send(request(target, fields));
  HttpAnswer answer = receiveHeader();
  if (const std::string length = answer.field("content-length"); !length.empty())
    receiveBody(std::strtoul(length.c_str(), nullptr, 10), &answer);
  return answer;
}

std::optional<LiveNews> HttpClient::news() const {
  for (;;) {
    while (_news.find("\n\n") == std::string::npos) {
      const std::optional<std::string> chunk = receiveChunk();
      if (!chunk || chunk->empty()) return std::nullopt;
      _news += *chunk;
    }
    std::string event = takeUpTo("\n\n", &_news);
    if (event == ":") continue;  // a sign of life
    const std::string name = takeUpTo("\n", &event), data = takeUpTo("\n", &event);
    if (!name.starts_with("event: ") || !data.starts_with("data: ")) return LiveNews{name, data};
    return LiveNews{name.substr(7), nlohmann::json::parse(data.substr(6), nullptr, false)};
  }
}

bool HttpClient::receiveMore() const {
  const auto bytes = tryReceive();
  _received += bytes.value_or("");
  return bytes && !bytes->empty();
}

bool HttpClient::receiveUpTo(const std::string& end, std::string* text) const {
  std::size_t looked = 0;
  while (_received.find(end, looked) == std::string::npos) {
    looked = _received.size() < end.size() ? 0 : _received.size() - end.size();
    if (!receiveMore()) return false;
  }
  *text = takeUpTo(end, &_received);
  return true;
}

HttpAnswer HttpClient::receiveHeader() const {
  HttpAnswer answer;
  std::string header;
  if (!receiveUpTo("\r\n\r\n", &header)) return answer;
  const std::string first = takeUpTo("\r\n", &header);
  if (first.starts_with("HTTP/1.1 ")) answer.status = std::atoi(first.c_str() + 9);
  while (!header.empty()) {
    std::string line = takeUpTo("\r\n", &header);
    const std::string name = inSmallLetters(takeUpTo(": ", &line));
    answer.fields[name] = line;
  }
  return answer;
}

void HttpClient::receiveBody(std::size_t count, HttpAnswer* answer) const {
  while (_received.size() < count && receiveMore()) continue;
  answer->isWhole = _received.size() >= count;
  answer->body = _received.substr(0, count);
  _received.erase(0, count);
}

void HttpClient::receiveRest(HttpAnswer* answer) const {
  while (receiveMore()) continue;
  answer->body = std::exchange(_received, {});
}

// Empty: the last one. Nothing: the connection has ended, or nothing came in time.
std::optional<std::string> HttpClient::receiveChunk() const {
  std::string length;
  if (!receiveUpTo("\r\n", &length)) return std::nullopt;
  HttpAnswer chunk;
  receiveBody(std::strtoul(length.c_str(), nullptr, 16) + 2, &chunk);
  if (!chunk.isWhole || !chunk.body.ends_with("\r\n")) return std::nullopt;
  return chunk.body.substr(0, chunk.body.size() - 2);
}

HttpAnswer httpGet(int port, const std::string& target, const HttpClient::Fields& fields) {
  return HttpClient(port).get(target, fields);
}

}  // namespace dch::testkit
