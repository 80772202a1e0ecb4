#include "fuzz/support/answer_model.h"

#include <optional>

#include "dch/core/catalogue.h"
#include "fuzz/support/field_model.h"
#include "fuzz/support/require.h"
#include "zordchcl/messages.h"
#include "zordchcl/status.h"

namespace fuzz {

namespace {

enum class Form { none, status, statusAndHandle, text };

struct Answer {
  Form form = Form::none;
  ZORA_Long status = DCH_STATUS_OK;
  ZORA_Long handle = 0;
  std::string_view text = {};
};

enum class Kind { statusChange, row, question, unanswered, poll, unknown };

Kind kindOf(short code) {
  switch (static_cast<DCH_RequestCode>(code)) {
    case DCH_REQUEST_REGISTER:
    case DCH_REQUEST_ONLINE:
    case DCH_REQUEST_OFFLINE:
    case DCH_REQUEST_UNREGISTER:
      return Kind::statusChange;
    case DCH_REQUEST_DATA:
      return Kind::row;
    case DCH_REQUEST_APPLICATIONS:
    case DCH_REQUEST_ATTRIBUTES:
    case DCH_REQUEST_HELP:
      return Kind::question;
    case DCH_REQUEST_DATA_SUBSCRIPTION:
    case DCH_REQUEST_STATUS_SUBSCRIPTION:
    case DCH_REQUEST_ACTION:
    case DCH_REQUEST_DEFER_REPORT:
      return Kind::unanswered;
    case DCH_REQUEST_ACTION_RESULTS:
      return Kind::poll;
  }
  return Kind::unknown;
}

bool isOwnStatus(ZORA_Long status) {
  return status == DCH_STATUS_OK ||
         (status >= DCH_STATUS_MALFORMED && status <= DCH_STATUS_UNKNOWN_ACTION);
}

Form formOf(short code, bool isDatagram) {
  if (code == DCH_REQUEST_ONLINE) return Form::statusAndHandle;
  return kindOf(code) == Kind::unanswered && isDatagram ? Form::none : Form::status;
}

ZORA_Long signedIn(std::string_view field) {
  return static_cast<ZORA_Long>(numberIn(field, 4));
}

// The one answer that there may be.
Answer answerOf(const Outcome& outcome, const dch::Origin& origin) {
  require(outcome.answers.size() <= 1, "one answer at most");
  if (outcome.answers.empty()) return {};
  require(outcome.answers.front().receiver == origin, "the sender is answered");
  const std::string& bytes = outcome.answers.front().bytes;
  FieldModel fields(bytes);
  if (const auto text = fields.next(DCH_response)) return {Form::text, DCH_STATUS_OK, 0, *text};
  fields = FieldModel(bytes);
  Answer answer{Form::status, signedIn(fields.next(DCH_status).value())};
  if (fields.atEnd()) return answer;
  answer.form = Form::statusAndHandle;
  answer.handle = signedIn(fields.next(DCH_handle).value());
  return answer;
}

void checkRefused(const Answer& answer, Form form) {
  require(answer.form == form, "the form of a refusal");
  if (form != Form::none) require(answer.status == DCH_STATUS_MALFORMED, "a malformed message");
}

void checkAnswer(short code, bool isDatagram, const Answer& answer) {
  switch (answer.form) {
    case Form::text:
      require(kindOf(code) == Kind::question, "a text answers a question alone");
      require(answer.text.size() <= dch::maxCatalogueTextBytes, "a text that a client can read");
      break;
    case Form::statusAndHandle:
      require(code == DCH_REQUEST_ONLINE && isOwnStatus(answer.status), "the answer to online");
      require((answer.handle > 0) == (answer.status == DCH_STATUS_OK), "a handle, if it went well");
      break;
    case Form::status:
      // The result of an action is the exit status of a program.
      require(isOwnStatus(answer.status) || code == DCH_REQUEST_ACTION_RESULTS,
              "a status of the server's own");
      require(formOf(code, isDatagram) == Form::status,
              "a request that has a status for an answer");
      break;
    case Form::none:
      // Who asks for the result of an action that runs is told when it has ended.
      require(kindOf(code) == Kind::unanswered || kindOf(code) == Kind::poll,
              "a request without an answer");
  }
}

}  // namespace

bool isAnswer(std::string_view message) {
  if (!lengthWordIsRight(message)) return false;
  if (FieldModel(message).next(DCH_response)) return true;
  FieldModel fields(message);
  return fields.next(DCH_status) && (fields.atEnd() || (fields.next(DCH_handle) && fields.atEnd()));
}

void checkOutcome(std::string_view message, const dch::Origin& origin, const Outcome& outcome) {
  const bool isDatagram = origin.isDatagram();
  const Answer answer = answerOf(outcome, origin);
  if (isDatagram && isAnswer(message)) {
    require(answer.form == Form::none, "an answer is not answered");
    return require(outcome.pushed.empty(), "nothing was done");
  }
  const std::optional<short> stated = FieldModel(message).nextShort(DCH_requestType);
  const short code = stated.value_or(0);
  if (!stated || !lengthWordIsRight(message)) {
    checkRefused(answer, stated ? formOf(code, isDatagram) : Form::status);
    return require(outcome.pushed.empty(), "nothing was done");
  }
  checkAnswer(code, isDatagram, answer);
  const bool wentWell = answer.status == DCH_STATUS_OK;
  for (const std::string& pushed : outcome.pushed) {
    if (code == DCH_REQUEST_DATA)
      require(wentWell && pushed == message, "a row that is acknowledged is pushed as it came");
    else
      require(isStatusEvent(pushed) && wentWell &&
                  (kindOf(code) == Kind::statusChange || code == DCH_REQUEST_STATUS_SUBSCRIPTION),
              "events of what has happened");
  }
}

void checkBroken(const dch::Origin& origin, const Outcome& outcome) {
  checkRefused(answerOf(outcome, origin), Form::status);
  require(outcome.pushed.empty(), "nothing was done");
}

void checkResult(const std::vector<dch::Origin>& waiters, ZORA_Long result,
                 const Outcome& outcome) {
  require(outcome.answers.size() == waiters.size() && outcome.pushed.empty(),
          "those who wait are told a result");
  for (std::size_t number = 0; number < waiters.size(); ++number) {
    const Answer answer = answerOf({{outcome.answers[number]}, {}}, waiters[number]);
    require(answer.form == Form::status && answer.status == result, "the result is told");
  }
}

}  // namespace fuzz
