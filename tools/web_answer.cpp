#include "tools/web_answer.h"

#include <sysexits.h>

#include <chrono>
#include <cstring>
#include <new>

#include "tools/common/failure.h"
#include "tools/common/printable.h"

namespace tools {
namespace {

constexpr long longestConnecting = 10;              // s
constexpr std::chrono::seconds longestSilence{30};  // a query of the server's takes 10 s at most
constexpr std::chrono::milliseconds betweenCalls{200};

struct AddressCloser {
  void operator()(CURLU* address) const { curl_url_cleanup(address); }
};
using Address = std::unique_ptr<CURLU, AddressCloser>;

struct TextCloser {
  void operator()(char* text) const { curl_free(text); }
};
using CurlText = std::unique_ptr<char, TextCloser>;

template <class Handle>
Handle* orNoMemory(Handle* handle) {
  if (handle == nullptr) throw std::bad_alloc();
  return handle;
}

CurlText partOf(CURLU* address, CURLUPart part) {
  char* text = nullptr;
  curl_url_get(address, part, &text, 0);
  return CurlText(text);
}

void refuse(const std::string& server, const char* reason) {
  throw Failure(EX_USAGE, "--web: " + inQuotes(server) + " is no address of a server: " + reason);
}

void set(CURLU* address, CURLUPart part, const std::string& text, unsigned flags) {
  if (curl_url_set(address, part, text.c_str(), flags) != CURLUE_OK) throw std::bad_alloc();
}

std::string addressOf(const WebQuestion& question) {
  const Address address(orNoMemory(curl_url()));
  const bool hasScheme = question.server.find("://") != std::string::npos;
  const std::string server = (hasScheme ? "" : "http://") + question.server;
  const CURLUcode code = curl_url_set(address.get(), CURLUPART_URL, server.c_str(), 0);
  if (code == CURLUE_OUT_OF_MEMORY) throw std::bad_alloc();
  if (code != CURLUE_OK && code != CURLUE_UNSUPPORTED_SCHEME)
    refuse(question.server, curl_url_strerror(code));
  const CurlText scheme = partOf(address.get(), CURLUPART_SCHEME);
  if (!scheme ||
      (scheme.get() != std::string_view("http") && scheme.get() != std::string_view("https")))
    refuse(question.server, "it has to begin with http:// or https://");
  if (partOf(address.get(), CURLUPART_QUERY) || partOf(address.get(), CURLUPART_FRAGMENT))
    refuse(question.server, "it has to end before ? and #");
  std::string path = partOf(address.get(), CURLUPART_PATH).get();
  while (path.ends_with('/')) path.pop_back();
  set(address.get(), CURLUPART_PATH, path + question.path, 0);
  for (const auto& [name, value] : question.parameters) {
    std::string parameter = name;
    (parameter += '=') += value;
    set(address.get(), CURLUPART_QUERY, parameter, CURLU_APPENDQUERY | CURLU_URLENCODE);
  }
  return orNoMemory(partOf(address.get(), CURLUPART_URL).get());
}

}  // namespace

WebAnswer::WebAnswer(const WebQuestion& question, std::function<void()> whileWaiting)
    : _server(question.server),
      _whileWaiting(std::move(whileWaiting)),
      _transfer(orNoMemory(curl_easy_init())),
      _transfers(orNoMemory(curl_multi_init())) {
  CURL* const transfer = _transfer.get();
  curl_easy_setopt(transfer, CURLOPT_URL, addressOf(question).c_str());
  curl_easy_setopt(transfer, CURLOPT_PROXY, "");
  curl_easy_setopt(transfer, CURLOPT_NOSIGNAL, 1L);
  curl_easy_setopt(transfer, CURLOPT_CONNECTTIMEOUT, longestConnecting);
  curl_easy_setopt(transfer, CURLOPT_USERAGENT, "zordc/" ZORD410_VERSION);
  curl_easy_setopt(transfer, CURLOPT_ERRORBUFFER, _reason);
  curl_easy_setopt(transfer, CURLOPT_WRITEFUNCTION, &WebAnswer::take);
  curl_easy_setopt(transfer, CURLOPT_WRITEDATA, this);
  if (question.token) {
    const std::string field = "Authorization: Bearer " + *question.token;
    _fields.reset(orNoMemory(curl_slist_append(nullptr, field.c_str())));
    curl_easy_setopt(transfer, CURLOPT_HTTPHEADER, _fields.get());
  }
  if (curl_multi_add_handle(_transfers.get(), transfer) != CURLM_OK) throw std::bad_alloc();
}

long WebAnswer::status() {
  begin();
  long status = 0;
  curl_easy_getinfo(_transfer.get(), CURLINFO_RESPONSE_CODE, &status);
  return status;
}

std::string WebAnswer::type() {
  begin();
  const char* type = nullptr;
  curl_easy_getinfo(_transfer.get(), CURLINFO_CONTENT_TYPE, &type);
  std::string text = type != nullptr ? type : "";
  for (char& each : text)
    if (each >= 'A' && each <= 'Z') each = static_cast<char>(each - 'A' + 'a');
  return text;
}

std::string_view WebAnswer::read() {
  waitForMore();
  _piece.swap(_came);
  _came.clear();
  if (_piece.empty() && _result != CURLE_OK) fail(_result);
  return _piece;
}

std::size_t WebAnswer::take(char* bytes, std::size_t size, std::size_t count,
                            void* answer) noexcept {
  try {
    static_cast<WebAnswer*>(answer)->_came.append(bytes, size * count);
    return size * count;
  } catch (const std::bad_alloc&) {
    return 0;  // ends the transfer with an error
  }
}

void WebAnswer::begin() {
  waitForMore();
  if (!hasBegun()) fail(_result);
}

bool WebAnswer::hasBegun() const {
  long status = 0;
  curl_easy_getinfo(_transfer.get(), CURLINFO_RESPONSE_CODE, &status);
  return status != 0;
}

// Until there is some, or no more will come.
void WebAnswer::waitForMore() {
  const auto start = std::chrono::steady_clock::now();
  while (_came.empty() && !_isDone) {
    int running = 0;
    CURLMcode code = curl_multi_perform(_transfers.get(), &running);
    int left = 0;
    if (const CURLMsg* const message = curl_multi_info_read(_transfers.get(), &left)) {
      _isDone = true;
      _result = message->data.result;
    }
    if (code == CURLM_OK && _came.empty() && !_isDone)
      code = curl_multi_poll(_transfers.get(), nullptr, 0, int{betweenCalls.count()}, nullptr);
    if (code != CURLM_OK) fail(curl_multi_strerror(code));
    if (_came.empty() && !_isDone) _whileWaiting();
    if (_came.empty() && !_isDone && std::chrono::steady_clock::now() - start > longestSilence)
      fail("nothing came for " + std::to_string(longestSilence.count()) + " s");
  }
}

void WebAnswer::fail(CURLcode code) const {
  long number = 0;
  curl_easy_getinfo(_transfer.get(), CURLINFO_OS_ERRNO, &number);
  if (code == CURLE_COULDNT_CONNECT && number != 0) fail(strerror(static_cast<int>(number)));
  fail(_reason[0] != '\0' ? _reason : curl_easy_strerror(code));
}

void WebAnswer::fail(const std::string& reason) const {
  if (hasBegun()) throw AnswerCutShort(printable(reason).text);
  throw Failure(EX_UNAVAILABLE, "cannot get an answer from " + printable(_server).text + ": " +
                                    printable(reason).text + " (--web URL asks another page)");
}

}  // namespace tools
