// answer_model.h: what the server may answer to a message, worked out from its bytes alone.
#ifndef FUZZ_SUPPORT_ANSWER_MODEL_H
#define FUZZ_SUPPORT_ANSWER_MODEL_H

#include "dch/requests.h"

namespace fuzz {

void checkOutcome(const dch::IncomingMessage& message, const dch::Outcome& outcome);

}  // namespace fuzz

#endif  // FUZZ_SUPPORT_ANSWER_MODEL_H
