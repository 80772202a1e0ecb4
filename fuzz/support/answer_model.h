// answer_model.h: what the server may answer to a message, worked out from its bytes alone.
#ifndef FUZZ_SUPPORT_ANSWER_MODEL_H
#define FUZZ_SUPPORT_ANSWER_MODEL_H

#include <string>
#include <string_view>
#include <vector>

namespace fuzz {

// What the server sends because of one message.
struct Outcome {
  std::vector<std::string> answers;  // to its sender
  std::vector<std::string> pushed;   // to subscribers
};

// Whether a message is one that the server answers with.
bool isAnswer(std::string_view message);

void checkOutcome(std::string_view message, bool isDatagram, const Outcome& outcome);

}  // namespace fuzz

#endif  // FUZZ_SUPPORT_ANSWER_MODEL_H
