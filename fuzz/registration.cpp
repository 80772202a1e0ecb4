// Registration texts: what is refused, and what a message is made of.
#include "suite/registration.h"

#include <algorithm>
#include <cstdint>
#include <string>

#include "fuzz/support/field_model.h"
#include "fuzz/support/null_trace.h"
#include "fuzz/support/require.h"
#include "suite/zorp.h"

using namespace fuzz;

namespace {

constexpr std::string_view specialCharacters = ",:;'\"";

bool isControl(char character) {
  return static_cast<unsigned char>(character) < 0x20 || character == 0x7f;
}

bool isName(const std::string& name, std::size_t longest) {
  return !name.empty() && name.size() <= longest &&
         std::none_of(name.begin(), name.end(), isControl) &&
         name.find_first_of(specialCharacters) == std::string::npos;
}

bool isText(const std::string& text) {
  return text.find_first_of(specialCharacters) == std::string::npos &&
         text.find('\0') == std::string::npos;
}

void checkAttribute(const suite::RegisteredAttribute& attribute) {
  require(isName(attribute.name, 32), "an attribute's name");
  require(std::string_view("ACGLNDRTIS").find(attribute.letter) != std::string_view::npos,
          "an attribute's letter");
  require(attribute.size >= 1 && attribute.size <= suite::largestAttributeSize,
          "an attribute's size");
  require(isText(attribute.help), "an attribute's help");
}

void checkRegistration(const suite::Registration& registration) {
  require(isName(registration.applName, 20), "an application's name");
  require(isName(registration.applKey, 3) && registration.applKey.size() == 3,
          "an application's key");
  require(
      std::count(std::begin(ZORA_DPTypeNames), std::end(ZORA_DPTypeNames), registration.type) == 1,
      "a provider type");
  require(isText(registration.help), "a help text");
  require(!registration.groups.empty(), "a group");
  for (const suite::RegisteredGroup& group : registration.groups) {
    require(isName(group.name, 32), "a group's name");
    require(!group.attributes.empty(), "an attribute in each group");
    for (const suite::RegisteredAttribute& attribute : group.attributes) checkAttribute(attribute);
  }
}

bool isBlank(char character) {
  return character == ' ' || character == '\t' || character == '\r' || character == '\n';
}

// Whether nothing can be left out around the separators of a text.
bool isShortest(std::string_view text) {
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (std::string_view(":,;").find(text[i]) == std::string_view::npos) continue;
    if (i == 0 || isBlank(text[i - 1]) || (i + 1 < text.size() && isBlank(text[i + 1])))
      return false;
  }
  return text.find(",;") == std::string_view::npos;  // an attribute's empty help
}

// The shortest form of a text is a text of the same registration, and its own shortest form.
void checkShortestForm(const suite::Registration& registration, std::string_view text) {
  require(registration.text.size() <= text.size(), "no text grows");
  require(isShortest(registration.text), "the shortest form is short");
  suite::Registration again;
  std::string error;
  require(suite::parseRegistration(registration.text, &again, &error), "the shortest form is good");
  require(again.text == registration.text, "the shortest form stays as it is");
  require(again.applName == registration.applName && again.applKey == registration.applKey &&
              again.type == registration.type && again.help == registration.help &&
              again.groups.size() == registration.groups.size(),
          "the shortest form says the same");
}

void checkMessage(const suite::Registration& registration, const char* message) {
  const std::string_view bytes(message, ZOR0_MessageLength(message));
  require(bytes.size() <= ZOR0_MAX_REQUEST_SIZE, "a message that the server reads whole");
  FieldModel fields(bytes);
  const auto code = fields.next(DCH_requestType);
  require(code && numberIn(*code, 2) == 0x1010, "the request's code");
  require(fields.nextText(DCH_applName) == registration.applName, "the application's name");
  require(fields.nextText(DCH_applKey) == registration.applKey, "the application's key");
  require(fields.next(DCH_response) == registration.text, "the text in its shortest form");
  require(fields.atEnd(), "nothing more");
}

// The size of the message of a registration.
std::size_t messageSize(const suite::Registration& registration) {
  return 4 + 8 + (6 + registration.applName.size() + 1) + (6 + registration.applKey.size() + 1) +
         (6 + registration.text.size());
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  traceIntoNothing();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t count) {
  const std::string text(reinterpret_cast<const char*>(bytes), count);
  suite::Registration registration;
  registration.applName = "untouched";
  std::string error;
  const bool isGood = suite::parseRegistration(text, &registration, &error);
  if (isGood) {
    checkRegistration(registration);
    checkShortestForm(registration, text);
  } else {
    require(error.starts_with("clause "), "an error that names the clause");
    require(std::none_of(error.begin(), error.end(), isControl), "an error that is fit for a log");
    require(registration.applName == "untouched" && registration.groups.empty(),
            "nothing is stored of a text that is refused");
  }

  // The provider library takes a text up to its terminating zero.
  if (text.find('\0') != std::string::npos) return 0;
  char* message = nullptr;
  const int result = ZORP_ConstructDPregisterBuffer(text.c_str(), &message);
  require(result == (isGood && messageSize(registration) <= ZOR0_MAX_REQUEST_SIZE ? 1 : 0),
          "a message for every good text that is not too long");
  require((message != nullptr) == (result == 1), "a message only then");
  if (message != nullptr) checkMessage(registration, message);
  return 0;
}
