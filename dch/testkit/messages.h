// messages.h: requests as clients send them, and what is in an answer.
#ifndef DCH_TESTKIT_MESSAGES_H
#define DCH_TESTKIT_MESSAGES_H

#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include "zora/zora.h"

namespace dch::testkit {

// Two groups: load (load1, D, 16 bytes; processes, N, 4 bytes) and disk (name, T, 32 bytes).
inline constexpr char hostmonRegistration[] =
    "appl:HOSTMON,HMN;type:SOCK;group:load;attr:load1,D,16;attr:processes,N,4;"
    "group:disk;attr:name,T,32;";

struct Value {
  std::string name;
  char letter;
  std::string bytes;
};

// The value of a number, in the byte order of the host.
template <class Number>
std::string bytesOf(Number number) {
  std::string bytes(sizeof number, '\0');
  std::memcpy(bytes.data(), &number, sizeof number);
  return bytes;
}

// `name` and `key` stand in front of the text; by default they are those of hostmonRegistration.
std::string registerMessage(const std::string& text = hostmonRegistration,
                            const std::string& name = "HOSTMON", const std::string& key = "HMN");
std::string onlineMessage(const std::string& application, const std::string& group,
                          const std::string& source);
std::string offlineMessage(ZORA_Long handle);
std::string unregisterMessage(const std::string& application);
std::string dataMessage(ZORA_Long handle, const std::vector<Value>& values = {});
std::string subscribeMessage(const std::string& application, const std::string& group,
                             ZORA_Long wanted = 1);
std::string withdrawMessage(const std::string& application, const std::string& group);
std::string statusSubscribeMessage(ZORA_Long wanted = 1);
// Asks about an application, or about all with a null name; `code` is a DCH_RequestCode.
std::string catalogueMessage(short code, const char* application = nullptr);
// The parameters are left out when they are null.
std::string actionMessage(const std::string& action, ZORA_Long id,
                          const char* parameters = nullptr);
std::string actionResultsMessage(ZORA_Long id);
std::string deferralMessage(ZORA_Long actionId, const std::string& table = "TABLE");

// A request of each kind, from a registration of group load to the end of it, for this application
// and this handle of it.
std::vector<std::string> requestsOfEachKind(const std::string& application, ZORA_Long handle);

// The same message with another length word.
std::string withLengthWord(std::string message, std::uint32_t length);

// An answer taken apart; an answer of another form gives nothing.
std::optional<ZORA_Long> statusOf(const std::string& answer);
struct OnlineAnswer {
  ZORA_Long status;
  ZORA_Long handle;
  bool operator==(const OnlineAnswer&) const = default;
};
std::optional<OnlineAnswer> onlineAnswerOf(const std::string& answer);
// The handle alone, 0 when there is none.
ZORA_Long handleOf(const std::string& answer);
std::optional<std::string> textOf(const std::string& answer);

// A status event as "APPLICATION,GROUP,SOURCE,CODE" with the code in hexadecimal, such as
// "HOSTMON,load,host1,1015"; another message gives an empty text.
std::string eventText(const std::string& message);

}  // namespace dch::testkit

#endif  // DCH_TESTKIT_MESSAGES_H
