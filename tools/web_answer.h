// web_answer.h: what a server of the web answers, taken as it comes.
#ifndef TOOLS_WEB_ANSWER_H
#define TOOLS_WEB_ANSWER_H

#include <curl/curl.h>

#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace tools {

// The answer ended before it was complete.
class AnswerCutShort : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

struct WebQuestion {
  std::string server;  // its address, http: unless it says https:, perhaps with a path
  std::string path;    // below that
  std::vector<std::pair<std::string, std::string>> parameters;
  std::optional<std::string> token;
};

// One question and its answer. The server is asked directly, without a proxy, and a redirection is
// no answer to follow: the token is for this server alone. One thread.
class WebAnswer {
 public:
  // `whileWaiting` is called now and then while nothing comes. Throws a Failure (EX_USAGE) when the
  // address of the server is none.
  WebAnswer(const WebQuestion& question, std::function<void()> whileWaiting);

  // Wait until the answer begins. Throw a Failure (EX_UNAVAILABLE) when it does not.
  long status();
  std::string type();  // its content's, lower case letters; may be empty

  // Waits for more of the content, which is good until the next call; nothing at its end. Throws
  // what status() does, and AnswerCutShort.
  std::string_view read();

 private:
  struct TransferCloser {
    void operator()(CURL* transfer) const { curl_easy_cleanup(transfer); }
  };
  struct TransfersCloser {
    void operator()(CURLM* transfers) const { curl_multi_cleanup(transfers); }
  };
  struct FieldsCloser {
    void operator()(curl_slist* fields) const { curl_slist_free_all(fields); }
  };

  static std::size_t take(char* bytes, std::size_t size, std::size_t count, void* answer) noexcept;
  void waitForMore();
  void begin();
  bool hasBegun() const;
  [[noreturn]] void fail(CURLcode code) const;
  [[noreturn]] void fail(const std::string& reason) const;

  const std::string _server;
  const std::function<void()> _whileWaiting;
  std::unique_ptr<curl_slist, FieldsCloser> _fields;
  std::unique_ptr<CURL, TransferCloser> _transfer;
  std::unique_ptr<CURLM, TransfersCloser> _transfers;  // of this one only; goes before it
  char _reason[CURL_ERROR_SIZE] = "";
  std::string _came;  // and was not handed out yet
  std::string _piece;
  bool _isDone = false;
  CURLcode _result = CURLE_OK;
};

}  // namespace tools

#endif  // TOOLS_WEB_ANSWER_H
