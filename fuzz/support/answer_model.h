// answer_model.h: what the server may answer to a message, worked out from its bytes alone.
#ifndef FUZZ_SUPPORT_ANSWER_MODEL_H
#define FUZZ_SUPPORT_ANSWER_MODEL_H

#include <string_view>

#include "dch/requests.h"

namespace fuzz {

// Whether a message is one that the server answers with.
bool isAnswer(std::string_view message);

// Whether there is an answer, and one datagram holds it.
bool fitsADatagram(const dch::Answer& answer);

void checkOutcome(const dch::IncomingMessage& message, const dch::Outcome& outcome);

}  // namespace fuzz

#endif  // FUZZ_SUPPORT_ANSWER_MODEL_H
