// responder.h: what requests are answered, and with which statuses they are counted.
#ifndef DCH_CORE_RESPONDER_H
#define DCH_CORE_RESPONDER_H

#include <string>
#include <string_view>
#include <vector>

#include "dch/core/answers.h"
#include "dch/core/counters.h"
#include "dch/core/log.h"
#include "dch/core/request_counts.h"
#include "dch/core/requests.h"

namespace dch {

// A request as far as it concerns its answer.
struct Asked {
  const Origin& origin;
  const RequestType& type;
  short code;  // of the message; types without one of their own have others
};

// Forms the messages. What has no memory for one drops the answer and counts it. One thread.
class Responder {
 public:
  // All of them outlive it.
  Responder(Answers& answers, RequestCounts& counts, Counters& counters, const Log& log)
      : _answers(answers), _counts(counts), _counters(counters), _log(log) {}

  // With a line in the log. Types that have no answer are counted only.
  void refuse(const Asked& asked, DCH_Status status, std::string_view reason = {});
  void sendResult(const Asked& asked, const Result& result);
  void sendText(const Asked& asked, const std::string& text);

  // What the program of an action has ended with, or why there is no result.
  void sendActionResult(const Origin& receiver, ZORA_Long result);
  void sendActionResult(const std::vector<Origin>& receivers, ZORA_Long result);

  // The request is done.
  void finish(const Origin& asker);

 private:
  void sendStatus(const Origin& receiver, ZORA_Long status, const ZORA_Long* handle = nullptr);

  Answers& _answers;
  RequestCounts& _counts;
  Counters& _counters;
  const Log& _log;
};

}  // namespace dch

#endif  // DCH_CORE_RESPONDER_H
