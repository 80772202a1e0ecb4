#include "dch/testkit/messages.h"

#include <arpa/inet.h>

#include <cstring>
#include <sstream>

#include "dch/core/field_reader.h"
#include "tests/support/messages.h"
#include "zordchcl/messages.h"
#include "zordchcl/zordchcl.h"

namespace dch::testkit {

std::string registerMessage(const std::string& text, const std::string& name,
                            const std::string& key) {
  return messageOf([&](DCH_MessageBuilder& message) {
    message.add(DCH_requestType, short{DCH_REQUEST_REGISTER})
        .add(DCH_applName, name.c_str())
        .add(DCH_applKey, key.c_str())
        .addBytes(DCH_response, text.data(), static_cast<ZORA_Long>(text.size()));
  });
}

std::string onlineMessage(const std::string& application, const std::string& group,
                          const std::string& source) {
  return messageOf([&](DCH_MessageBuilder& message) {
    message.add(DCH_requestType, short{DCH_REQUEST_ONLINE})
        .add(DCH_applName, application.c_str())
        .add(DCH_attrGroup, group.c_str())
        .add(DCH_sourceName, source.c_str());
  });
}

std::string offlineMessage(ZORA_Long handle) {
  return messageOf([&](DCH_MessageBuilder& message) {
    message.add(DCH_requestType, short{DCH_REQUEST_OFFLINE}).add(DCH_handle, handle);
  });
}

std::string unregisterMessage(const std::string& application) {
  return messageOf([&](DCH_MessageBuilder& message) {
    message.add(DCH_requestType, short{DCH_REQUEST_UNREGISTER})
        .add(DCH_applName, application.c_str());
  });
}

std::string dataMessage(ZORA_Long handle, const std::vector<Value>& values) {
  return messageOf([&](DCH_MessageBuilder& message) {
    message.add(DCH_requestType, short{DCH_REQUEST_DATA})
        .add(DCH_handle, handle)
        .add(DCH_dataCode, short{7});
    for (const Value& value : values)
      message.add(DCH_attrName, value.name.c_str())
          .addAttributeValue(value.bytes.data(), static_cast<ZORA_Long>(value.bytes.size()),
                             value.letter);
  });
}

std::string subscribeMessage(const std::string& application, const std::string& group,
                             ZORA_Long wanted) {
  return messageOf([&](DCH_MessageBuilder& message) {
    message.add(DCH_requestType, short{DCH_REQUEST_DATA_SUBSCRIPTION})
        .add(DCH_applName, application.c_str())
        .add(DCH_attrGroup, group.c_str())
        .add(DCH_status, wanted);
  });
}

std::string withdrawMessage(const std::string& application, const std::string& group) {
  return subscribeMessage(application, group, DCH_SUBSCRIPTION_STOP);
}

std::string statusSubscribeMessage(ZORA_Long wanted) {
  return messageOf([&](DCH_MessageBuilder& message) {
    message.add(DCH_requestType, short{DCH_REQUEST_STATUS_SUBSCRIPTION}).add(DCH_status, wanted);
  });
}

std::string catalogueMessage(short code, const char* application) {
  return messageOf([&](DCH_MessageBuilder& message) {
    message.add(DCH_requestType, code);
    if (application != nullptr) message.add(DCH_applName, application);
  });
}

std::string actionMessage(const std::string& action, ZORA_Long id, const char* parameters) {
  return messageOf([&](DCH_MessageBuilder& message) {
    message.add(DCH_requestType, short{DCH_REQUEST_ACTION})
        .add(DCH_actionType, short{1})
        .add(DCH_actionOwner, "owner")
        .add(DCH_sourceName, "node")
        .add(DCH_sourceName, "subnode")
        .add(DCH_actionName, action.c_str())
        .add(DCH_actionID, id);
    if (parameters != nullptr) message.add(DCH_actionParms, parameters);
  });
}

std::string actionResultsMessage(ZORA_Long id) {
  return messageOf([&](DCH_MessageBuilder& message) {
    message.add(DCH_requestType, short{DCH_REQUEST_ACTION_RESULTS}).add(DCH_actionID, id);
  });
}

std::string deferralMessage(ZORA_Long actionId, const std::string& table) {
  return messageOf([&](DCH_MessageBuilder& message) {
    message.add(DCH_requestType, short{DCH_REQUEST_DEFER_REPORT})
        .add(DCH_actionID, actionId)
        .add(DCH_peltaObject, ZORA_Long{0x1234})
        .add(DCH_currentTime, ZORA_Long{1700})
        .add(DCH_applKey, "HMN")
        .add(DCH_tableName, table.c_str())
        .add(DCH_sourceName, "host1");
  });
}

std::vector<std::string> requestsOfEachKind(const std::string& application, ZORA_Long handle) {
  const std::string text = "appl:" + application + ",KEY;help:some;group:load;attr:load1,D,16;";
  return {registerMessage(text, application, "KEY"),
          onlineMessage(application, "load", "host1"),
          dataMessage(handle, {{"load1", 'D', "0.42"}}),
          subscribeMessage(application, "load"),
          statusSubscribeMessage(),
          actionMessage("action", 1, "parameters"),
          actionResultsMessage(1),
          deferralMessage(1),
          catalogueMessage(DCH_REQUEST_APPLICATIONS),
          catalogueMessage(DCH_REQUEST_ATTRIBUTES, application.c_str()),
          catalogueMessage(DCH_REQUEST_HELP, application.c_str()),
          offlineMessage(handle),
          unregisterMessage(application)};
}

std::string withLengthWord(std::string message, std::uint32_t length) {
  const std::uint32_t word = htonl(length);
  std::memcpy(message.data(), &word, sizeof word);
  return message;
}

std::optional<ZORA_Long> statusOf(const std::string& answer) {
  std::string message = answer;
  FieldReader fields(message);
  ZORA_Long status = 0;
  if (!fields.readLong(DCH_status, &status) || !fields.atEnd()) return std::nullopt;
  return status;
}

std::optional<OnlineAnswer> onlineAnswerOf(const std::string& answer) {
  std::string message = answer;
  FieldReader fields(message);
  OnlineAnswer result{};
  if (!fields.readLong(DCH_status, &result.status) ||
      !fields.readLong(DCH_handle, &result.handle) || !fields.atEnd())
    return std::nullopt;
  return result;
}

ZORA_Long handleOf(const std::string& answer) {
  const auto online = onlineAnswerOf(answer);
  return online ? online->handle : 0;
}

std::optional<std::string> textOf(const std::string& answer) {
  std::string message = answer;
  FieldReader fields(message);
  std::string_view text;
  if (!fields.readResponse(&text) || !fields.atEnd()) return std::nullopt;
  return std::string(text);
}

std::string eventText(const std::string& event) {
  std::string message = event;
  FieldReader fields(message);
  std::string_view application, group, source;
  short code = 0;
  if (!fields.readText(DCH_applName, DCH_MAX_APPL_NAME, &application) ||
      !fields.readText(DCH_attrGroup, DCH_MAX_ATTR_GROUP, &group) ||
      !fields.readText(DCH_sourceName, DCH_MAX_SOURCE_NAME, &source) ||
      !fields.readShort(DCH_requestType, &code) || !fields.atEnd())
    return "";
  std::ostringstream text;
  text << application << ',' << group << ',' << source << ',' << std::hex << code;
  return text.str();
}

}  // namespace dch::testkit
