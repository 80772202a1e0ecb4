#include "tests/support/messages.h"

#include <netinet/in.h>

#include <cstdint>
#include <cstring>

std::string messageOf(const std::function<void(DCH_MessageBuilder&)>& addFields) {
  std::string buffer(65536, '\0');
  DCH_MessageBuilder message(buffer.data(), buffer.size());
  addFields(message);
  buffer.resize(static_cast<std::size_t>(message.length()));
  return buffer;
}

std::string statusAnswer(ZORA_Long status) {
  return messageOf([&](DCH_MessageBuilder& message) { message.add(DCH_status, status); });
}

std::string onlineAnswer(ZORA_Long status, ZORA_Long handle) {
  return messageOf([&](DCH_MessageBuilder& message) {
    message.add(DCH_status, status).add(DCH_handle, handle);
  });
}

short requestCode(const std::string& request) {
  std::uint16_t code;
  std::memcpy(&code, request.data() + ZOR0_LENGTH_WORD_SIZE + ZOR0_FIELD_HEADER_SIZE, sizeof code);
  return static_cast<short>(ntohs(code));
}
