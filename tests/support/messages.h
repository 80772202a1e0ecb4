// messages.h: messages as they travel, with their length word.
#ifndef TESTS_SUPPORT_MESSAGES_H
#define TESTS_SUPPORT_MESSAGES_H

#include <functional>
#include <string>

#include "zordchcl/messages.h"

std::string messageOf(const std::function<void(DCH_MessageBuilder&)>& addFields);

// The usual answers: a status, or a status and a handle.
std::string statusAnswer(ZORA_Long status);
std::string onlineAnswer(ZORA_Long status, ZORA_Long handle);

// What a request asks for: the value of its first field.
short requestCode(const std::string& request);

#endif  // TESTS_SUPPORT_MESSAGES_H
