// answer_box.h: where the answers to one question at a time come.
#ifndef DCH_LINK_ANSWER_BOX_H
#define DCH_LINK_ANSWER_BOX_H

#include <cstdint>
#include <string>
#include <string_view>

#include "dch/link/server_connection.h"

namespace dch {

// To be used for many questions, one after the other: what is subscribed to once costs the server
// and the library nothing more. One thread.
class AnswerBox {
 public:
  // `connection` outlives it. Throws LinkError.
  explicit AnswerBox(ServerConnection& connection);

  // Where that site's answers to the next question have to go, and no other site may send to. What
  // comes for those before is dropped, but not, when it comes so late, that nobody took one of
  // them.
  std::string next(std::string_view site);

  // The next answer to the last question. Waits for nothing. Throws as ServerConnection::next()
  // does.
  ServerConnection::Heard heard();

 private:
  ServerConnection& _connection;
  const std::string _prefix;
  const ServerConnection::Subscription _answers;
  std::uint64_t _questions = 0;
  std::string _wanted;
};

}  // namespace dch

#endif  // DCH_LINK_ANSWER_BOX_H
