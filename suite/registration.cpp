#include "suite/registration.h"

#include <climits>
#include <exception>
#include <vector>

#include "suite/fields.h"
#include "suite/trace_unit.h"
#include "suite/zorp.h"

namespace {

// Appends fields to a message whose room was measured before.
class MessageWriter {
 public:
  explicit MessageWriter(std::vector<char>* message) : _message(message) {
    message->assign(ZOR0_LENGTH_WORD_SIZE, '\0');
  }

  void add(short type, const void* value, std::size_t length = 0) {
    const auto valueLength = static_cast<ZORA_Long>(length);
    const std::size_t used = _message->size();
    _message->resize(used + ZOR0_FieldSize(type, value, valueLength));
    ZOR0_FormatDataField(_message->data(), _message->data() + used, type, value, valueLength,
                         nullptr);
  }

 private:
  std::vector<char>* const _message;
};

std::vector<char> buildMessage(const suite::Registration& registration) {
  std::vector<char> message;
  MessageWriter writer(&message);
  writer.add(DCH_requestType, &ZORP_REGISTRATION_REQUEST);
  writer.add(DCH_applName, registration.applName.c_str());
  writer.add(DCH_applKey, registration.applKey.c_str());
  writer.add(DCH_response, registration.text.data(), registration.text.size());
  return message;
}

}  // namespace

int ZORP_ConstructDPregisterBuffer(const char* registration, char** message) {
  TRC1_QUIET_FUNCTION("ZORP_ConstructDPregisterBuffer");
  if (registration == nullptr) {
    TRC1_ERROR("Error: registration text is NULL\n");
    return 0;
  }
  try {
    // The library gives messages to callers that never free them, so they live here.
    static thread_local std::vector<char> lastMessage;
    suite::Registration parsed;
    std::string error;
    if (!suite::parseRegistration(registration, &parsed, &error)) {
      TRC1_ERROR("Error: registration %s\n", error.c_str());
      return 0;
    }
    std::vector<char> built = buildMessage(parsed);
    if (built.size() > ZOR0_MAX_REQUEST_SIZE) {
      TRC1_ERROR("Error: registration message of %zu bytes is over %d bytes\n", built.size(),
                 ZOR0_MAX_REQUEST_SIZE);
      return 0;
    }
    lastMessage.swap(built);
    *message = lastMessage.data();
    return 1;
  } catch (const std::exception&) {
    TRC1_ERROR("Error: no memory for the registration message\n");
    return 0;
  }
}
