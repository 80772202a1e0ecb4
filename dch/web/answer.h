// answer.h: what a request is answered.
#ifndef DCH_WEB_ANSWER_H
#define DCH_WEB_ANSWER_H

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "dch/web/http_status.h"

namespace dch {

constexpr char jsonType[] = "application/json";

// Text that several answers may share.
using SharedText = std::shared_ptr<const std::string>;

inline SharedText shareText(std::string&& text) {
  return std::make_shared<const std::string>(std::move(text));
}

// Some of what an answer consists of.
struct Piece {
  std::vector<SharedText> texts = {};
  enum class Follows { more, nothing, failure } follows = Follows::more;  // behind these
};

// The pieces of an answer whose length is not known when it begins. One thread, the web's.
class Pieces {
 public:
  using Take = std::function<void(Piece&&)>;

  virtual ~Pieces() = default;

  // Calls `take` with the next piece, once, within the call or later, and not when the object is
  // gone. Asked again only after that.
  virtual void next(Take take) = 0;

  // Whether they go on until the connection ends.
  virtual bool areEndless() const { return false; }

  // Of endless ones: what ends the connection, whatever is still to be sent.
  virtual void setEnd(const std::function<void()>&) {}
  // The other side sends nothing more. It may be gone; to send it something shows that.
  virtual void peerHasEnded() {}
};

struct Answer {
  int status = http_status::ok;
  std::string type;  // of the content
  SharedText body = {};
  std::unique_ptr<Pieces> pieces = {};                           // in its place
  std::vector<std::pair<const char*, std::string>> fields = {};  // further ones of the header
  bool isExpected = false;  // its status is no refusal and no failure: nothing to be counted
};

// {"error": sentence}
Answer errorAnswer(int status, std::string_view sentence);

}  // namespace dch

#endif  // DCH_WEB_ANSWER_H
