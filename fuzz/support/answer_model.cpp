#include "fuzz/support/answer_model.h"

#include "dch/catalogue.h"
#include "fuzz/support/field_model.h"
#include "fuzz/support/require.h"
#include "zordchcl/messages.h"

namespace fuzz {

namespace {

using Form = dch::Answer::Form;

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

void requireNothingDone(const dch::Outcome& outcome) {
  require(outcome.source == nullptr && outcome.statusEvents.empty(), "nothing was done");
}

void checkRefused(const dch::Answer& answer, Form form) {
  require(answer.form == form, "the form of a refusal");
  if (form != Form::none) require(answer.status == DCH_STATUS_MALFORMED, "a malformed message");
}

void checkAnswer(short code, bool isDatagram, const dch::Answer& answer) {
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

bool fitsADatagram(const dch::Answer& answer) {
  constexpr std::size_t largestDatagram = 8192, aroundText = 4 + 6;
  return answer.form != Form::none && answer.text.size() + aroundText <= largestDatagram;
}

void checkOutcome(const dch::IncomingMessage& message, const dch::Outcome& outcome) {
  const std::string_view bytes = message.text();
  const auto codeField = FieldModel(bytes).next(DCH_requestType);
  if (message.isDatagram() && isAnswer(bytes)) {
    require(outcome.answer.form == Form::none, "an answer is not answered");
    return requireNothingDone(outcome);
  }
  if (!codeField) {
    checkRefused(outcome.answer, Form::status);
    return requireNothingDone(outcome);
  }
  const auto code = static_cast<short>(numberIn(*codeField, 2));
  if (!lengthWordIsRight(bytes)) {
    checkRefused(outcome.answer, formOf(code, message.isDatagram()));
    return requireNothingDone(outcome);
  }
  checkAnswer(code, message.isDatagram(), outcome.answer);
  const bool wentWell = outcome.answer.status == DCH_STATUS_OK;
  require((outcome.source != nullptr) == (code == DCH_REQUEST_DATA && wentWell),
          "a row to publish for every row that is acknowledged");
  require(outcome.statusEvents.empty() || (kindOf(code) == Kind::statusChange && wentWell),
          "events of what has happened");
  for (const dch::StatusEvent& event : outcome.statusEvents)
    require(isStatusEvent(event.message), "an event is whole");
}

}  // namespace fuzz
