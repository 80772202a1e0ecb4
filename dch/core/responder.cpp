#include "dch/core/responder.h"

#include <new>

#include "zordchcl/messages.h"

namespace dch {

namespace {

constexpr std::size_t longestStatusBytes = 32;

}  // namespace

void Responder::refuse(const Asked& asked, DCH_Status status, std::string_view reason) {
  const char* const separator = reason.empty() ? "" : ": ";
  _log.write("refused %s (0x%04x) from %s: status %d, %s%s%s", asked.type.name,
             static_cast<unsigned>(static_cast<unsigned short>(asked.code)),
             asked.origin.peer.text().data(), static_cast<int>(status), DCH_statusText(status),
             separator, printable(reason).c_str());
  if (asked.type.isAnsweredByDatagram || !asked.origin.isDatagram())
    sendResult(asked, {status});
  else
    _counts.add(asked.type, status);
}

void Responder::sendResult(const Asked& asked, const Result& result) {
  _counts.add(asked.type, result.status);
  sendStatus(asked.origin, result.status, asked.type.hasHandle ? &result.handle : nullptr);
}

// What a program has ended with is no status of the request for it. One that ends with the number
// of a status that says that there is no result is told, and so counted, as that.
void Responder::sendActionResult(const Origin& receiver, ZORA_Long result) {
  const bool isStatus = result == DCH_STATUS_NOT_STORED || result == DCH_STATUS_UNKNOWN_ACTION;
  _counts.add(requestTypeOf(DCH_REQUEST_ACTION_RESULTS),
              isStatus ? static_cast<DCH_Status>(result) : DCH_STATUS_OK);
  sendStatus(receiver, result);
}

void Responder::sendStatus(const Origin& receiver, ZORA_Long status, const ZORA_Long* handle) {
  char buffer[longestStatusBytes];
  DCH_MessageBuilder message(buffer, sizeof buffer);
  message.add(DCH_status, status);
  if (handle != nullptr) message.add(DCH_handle, *handle);
  _answers.send(receiver, {buffer, static_cast<std::size_t>(message.length())});
}

void Responder::sendText(const Asked& asked, const std::string& text) {
  _counts.add(asked.type, DCH_STATUS_OK);
  const auto length = static_cast<ZORA_Long>(text.size());
  try {
    std::string bytes(ZOR0_LENGTH_WORD_SIZE + ZOR0_FieldSize(DCH_response, text.data(), length),
                      '\0');
    DCH_MessageBuilder message(bytes.data(), bytes.size());
    message.addBytes(DCH_response, text.data(), length);
    _answers.send(asked.origin, bytes);
  } catch (const std::bad_alloc&) {
    countDroppedAnswer(asked.origin, _counters, _log);
  }
}

void Responder::sendActionResult(const std::vector<Origin>& receivers, ZORA_Long result) {
  for (const Origin& receiver : receivers) sendActionResult(receiver, result);
}

void Responder::finish(const Origin& asker) {
  if (!asker.isDatagram()) _answers.finished(asker);
}

}  // namespace dch
