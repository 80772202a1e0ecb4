#include "dch/link/answer_box.h"

#include "dch/link/subject.h"

namespace dch {

namespace {

// More than any answer has: a hostile one does not take more memory than this.
constexpr int mostMessagesInBox = 2'048;
constexpr int mostBytesInBox = 8 << 20;

}  // namespace

AnswerBox::AnswerBox(ServerConnection& connection)
    : _connection(connection),
      _prefix(connection.newInbox() + '.'),
      _answers(connection.subscribe(_prefix + "*.*")) {
  natsSubscription_SetPendingLimits(_answers.get(), mostMessagesInBox, mostBytesInBox);
}

std::string AnswerBox::next(std::string_view site) {
  _wanted = _prefix + subjectToken(site) + '.' + std::to_string(++_questions);
  return _wanted;
}

ServerConnection::Heard AnswerBox::heard() {
  // Whoever sends without an end does not keep us here.
  for (int count = 0; count < mostMessagesInBox; ++count) {
    ServerConnection::Heard answer = _connection.heard(_answers.get());
    if (answer.message == nullptr || natsMsg_GetSubject(answer.message.get()) == _wanted)
      return answer;
  }
  return {};
}

}  // namespace dch
