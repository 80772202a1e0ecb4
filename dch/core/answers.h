// answers.h: the way back to clients.
#ifndef DCH_CORE_ANSWERS_H
#define DCH_CORE_ANSWERS_H

#include <cinttypes>
#include <string_view>

#include "dch/core/counters.h"
#include "dch/core/log.h"
#include "dch/core/message.h"

namespace dch {

class Answers {
 public:
  virtual ~Answers() = default;

  // Sends a whole message to where a request came from, without waiting for anybody: what the
  // client does not take is dropped and counted. The bytes are not needed afterwards.
  virtual void send(const Origin& receiver, std::string_view message) noexcept = 0;

  // Told once for each request on a stream connection: it is done, and its answer is sent; only the
  // result of an action that still runs comes later. Until then it waits for the store.
  virtual void finished([[maybe_unused]] const Origin& asker) noexcept {}
};

inline void countDroppedAnswer(const Origin& receiver, Counters& counters, const Log& log) {
  counters.add(Counter::answersDropped);
  log.write("answer to %s dropped, %" PRIu64 " so far", receiver.peer.text().data(),
            counters[Counter::answersDropped]);
}

}  // namespace dch

#endif  // DCH_CORE_ANSWERS_H
