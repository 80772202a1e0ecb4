// answer_model.h: what the server may answer to a message, worked out from its bytes alone.
#ifndef FUZZ_SUPPORT_ANSWER_MODEL_H
#define FUZZ_SUPPORT_ANSWER_MODEL_H

#include <string>
#include <string_view>
#include <vector>

#include "dch/core/message.h"
#include "zora/zora.h"

namespace fuzz {

// What the server sends because of one message or happening.
struct Outcome {
  struct Answered {
    dch::Origin receiver;
    std::string bytes;
  };
  std::vector<Answered> answers;
  std::vector<std::string> pushed;  // to subscribers

  bool isEmpty() const { return answers.empty() && pushed.empty(); }
};

// Whether a message is one that the server answers with.
bool isAnswer(std::string_view message);

// Of a message.
void checkOutcome(std::string_view message, const dch::Origin& origin, const Outcome& outcome);
// Of what was no whole message.
void checkBroken(const dch::Origin& origin, const Outcome& outcome);
// Of the end of an action, for whose result these wait.
void checkResult(const std::vector<dch::Origin>& waiters, ZORA_Long result, const Outcome& outcome);

}  // namespace fuzz

#endif  // FUZZ_SUPPORT_ANSWER_MODEL_H
