// messages.h: the requests of the channel and the order of their fields.
//
//   registration         built whole by the provider library
//   online               requestType, applName, attrGroup, sourceName
//   unregister           requestType, applName
//   offline              requestType, handle
//   data                 requestType, handle, dataCode, then attrName, attrValue of each attribute
//   action results       requestType, actionID
//   catalogue query      requestType, applName (left out to ask for all applications)
//   data subscription    requestType, applName, attrGroup, status (1 start, 0 stop)
//   status subscription  requestType, status (1 start, 0 stop)
//   action               requestType, actionType, actionOwner, sourceName (the node), sourceName
//                        (the subnode), actionName, actionID, actionParms (only when given)
//   deferral             requestType, actionID, peltaObject, currentTime, applKey, tableName,
//                        sourceName
//   status event         applName, attrGroup, sourceName, requestType; the DCH sends it
//   interrupt            sourceName alone, to a waiting client's own interrupt port
//
// The first six are answered with DCH_status, which DCH_handle follows in the answer to an online
// request; a catalogue query is answered with DCH_response. The others have no answer.
#ifndef ZORDCHCL_MESSAGES_H
#define ZORDCHCL_MESSAGES_H

#include <cstddef>

#include "suite/field_writing.h"
#include "suite/zorp.h"

// Request codes: the value of DCH_requestType. 0x10.. are the providers', 0x20.. the consumers'.
enum DCH_RequestCode : short {
  DCH_REQUEST_REGISTER = ZORP_REGISTRATION_REQUEST,
  DCH_REQUEST_ONLINE = 0x1015,
  DCH_REQUEST_UNREGISTER = 0x1020,
  DCH_REQUEST_OFFLINE = 0x1025,
  DCH_REQUEST_DATA = 0x1030,
  DCH_REQUEST_APPLICATIONS = 0x2040,
  DCH_REQUEST_HELP = 0x2045,
  DCH_REQUEST_ATTRIBUTES = 0x2050,
  DCH_REQUEST_DATA_SUBSCRIPTION = 0x2060,
  DCH_REQUEST_STATUS_SUBSCRIPTION = 0x2070,
  DCH_REQUEST_ACTION = 0x2080,
  DCH_REQUEST_ACTION_RESULTS = 0x2090,
  DCH_REQUEST_DEFER_REPORT = 0x20A0,
};

// The switch of a subscription request, in its DCH_status field.
enum DCH_Subscription : ZORA_Long { DCH_SUBSCRIPTION_STOP = 0, DCH_SUBSCRIPTION_START = 1 };

// Where dp_data stamps the two values that are not known while a row is built, and where the row's
// attributes begin.
constexpr std::size_t DCH_DATA_HANDLE_OFFSET = 18;
constexpr std::size_t DCH_DATA_CODE_OFFSET = 28;
constexpr std::size_t DCH_DATA_ATTRIBUTES_OFFSET = 30;
// What stands in their places until then.
constexpr ZORA_Long DCH_DATA_HANDLE_PLACEHOLDER = 0;
constexpr short DCH_DATA_CODE_PLACEHOLDER = 17;

// Text of the field that an interrupt datagram carries.
inline constexpr char DCH_TERMINATE_TEXT[] = "-TERMINATE-";

// Builds a message field by field in a buffer that it does not own. A field for which there is no
// room is left out whole, and fits() is false from then on.
class DCH_MessageBuilder {
 public:
  // Goes on behind the first `used` bytes, which count from the start of the length word.
  DCH_MessageBuilder(char* buffer, std::size_t capacity, std::size_t used = ZOR0_LENGTH_WORD_SIZE)
      : _buffer(buffer), _capacity(capacity), _used(used), _fits(used <= capacity) {}

  DCH_MessageBuilder& add(short type, short value) { return append(type, &value, 0, nullptr); }
  DCH_MessageBuilder& add(short type, ZORA_Long value) { return append(type, &value, 0, nullptr); }
  DCH_MessageBuilder& add(short type, const char* text) { return append(type, text, 0, nullptr); }
  DCH_MessageBuilder& addBytes(short type, const void* bytes, ZORA_Long length) {
    return append(type, bytes, length, nullptr);
  }
  DCH_MessageBuilder& addAttributeValue(const void* value, ZORA_Long length, char attrType) {
    return append(DCH_attrValue, value, length, &attrType);
  }

  bool fits() const { return _fits; }
  ZORA_Long length() const { return static_cast<ZORA_Long>(_used); }

 private:
  DCH_MessageBuilder& append(short type, const void* value, ZORA_Long length,
                             const char* attrType) {
    const std::size_t size = suite::fieldSize(type, value, length);
    if (!_fits || size > _capacity - _used) {
      _fits = false;
    } else if (size != 0) {  // a type that is not known adds nothing
      suite::writeField(_buffer + _used, size, type, value, attrType);
      _used += size;
      suite::storeMessageLength(_buffer, _used);
    }
    return *this;
  }

  char* _buffer;
  std::size_t _capacity;
  std::size_t _used;
  bool _fits;
};

#endif  // ZORDCHCL_MESSAGES_H
