#include "dch/link/answer_box.h"

namespace dch {

namespace {

// More than any answer has: a hostile one does not take more memory than this.
constexpr int mostMessages = 2'048;
constexpr int mostBytes = 8 << 20;

}  // namespace

AnswerBox::AnswerBox(ServerConnection& connection)
    : _connection(connection),
      _prefix(ServerConnection::newInbox() + "."),
      _answers(connection.subscribe(_prefix + "*")) {
  natsSubscription_SetPendingLimits(_answers.get(), mostMessages, mostBytes);
}

ServerConnection::Heard AnswerBox::heard() {
  while (true) {
    ServerConnection::Heard answer = _connection.heard(_answers.get());
    if (answer.message == nullptr) return answer;
    if (natsMsg_GetSubject(answer.message.get()) == _prefix + std::to_string(_questions))
      return answer;
  }
}

}  // namespace dch
