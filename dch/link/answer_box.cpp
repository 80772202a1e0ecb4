#include "dch/link/answer_box.h"

namespace dch {

namespace {

// More than any answer has: a hostile one does not take more memory than this.
constexpr int mostMessagesInBox = 2'048;
constexpr int mostBytesInBox = 8 << 20;

}  // namespace

AnswerBox::AnswerBox(ServerConnection& connection)
    : _connection(connection),
      _prefix(newInbox() + "."),
      _answers(connection.subscribe(_prefix + "*")) {
  natsSubscription_SetPendingLimits(_answers.get(), mostMessagesInBox, mostBytesInBox);
}

ServerConnection::Heard AnswerBox::heard() {
  const std::string wanted = _prefix + std::to_string(_questions);
  // Whoever sends without an end does not keep us here.
  for (int count = 0; count < mostMessagesInBox; ++count) {
    ServerConnection::Heard answer = _connection.heard(_answers.get());
    if (answer.message == nullptr || natsMsg_GetSubject(answer.message.get()) == wanted)
      return answer;
  }
  return {};
}

}  // namespace dch
