// What a site says of a provider: each line leads back to what it was made of, and nothing else is
// taken for one.
#include "dch/link/provider_line.h"

#include "dch/link/escaped_name.h"
#include "fuzz/support/input.h"
#include "fuzz/support/require.h"
#include "fuzz/support/text_forms.h"
#include "suite/fields.h"
#include "zordchcl/zordchcl.h"

namespace {

using fuzz::require;
using Kind = dch::ProviderFact::Kind;

constexpr std::string_view plain = "-._:,;/";

// Of a name with some bytes escaped.
std::size_t nameSize(std::string_view escaped) {
  if (escaped == "%") return 0;
  std::size_t size = escaped.size();
  for (const char each : escaped)
    if (each == '%') size -= 2;
  return size;
}

bool isName(std::string_view escaped, std::size_t least, std::size_t most) {
  if (!fuzz::isEscaped(escaped, plain)) return false;
  const std::size_t size = nameSize(escaped);
  return size >= least && size <= most && escaped.find("%00") == std::string_view::npos;
}

// Whether the registration is one that the application sends.
bool isOwnText(std::string_view escaped, std::string_view application) {
  if (!fuzz::isEscaped(escaped, plain)) return false;
  const auto text = dch::unescapedName(escaped, plain);
  suite::Registration registration;
  std::string error;
  return text->size() <= ZOR0_MAX_REQUEST_SIZE &&
         suite::parseRegistration(*text, &registration, &error) && registration.text == *text &&
         dch::escapedName(registration.applName, plain) == application;
}

bool isLine(std::string_view line) {
  const auto fields = fuzz::split(line, ' ');
  if (fields.size() < 2 || !isName(fields[1], 1, 20)) return false;
  if (fields[0] == "U") return fields.size() == 2;
  if (fields[0] == "A") return fields.size() == 3 && isOwnText(fields[2], fields[1]);
  return (fields[0] == "S" || fields[0] == "G") && fields.size() == 4 && isName(fields[2], 1, 32) &&
         isName(fields[3], 0, DCH_MAX_SOURCE_NAME);
}

// The key that belongs to a line.
std::string keyIn(std::string_view line) {
  const bool isOfApplication = line.front() == 'A' || line.front() == 'U';
  if (!isOfApplication) return 'S' + std::string(line.substr(1));
  return 'A' + std::string(line.substr(1, line.find(' ', 2) - 1));
}

void checkAsLine(std::string_view line, dch::SharedRegistrations* registrations) {
  const auto fact = dch::parseProviderLine(line, *registrations);
  require(fact.has_value() == isLine(line), "what a line is");
  if (!fact) return;
  require(dch::providerLine(*fact) == line, "a fact has one line");
  require(dch::providerKey(*fact) == keyIn(line), "a fact has one key");
  require((fact->registration != nullptr) == (fact->kind == Kind::registered), "who registers");
}

// Names of any bytes, as a model of what may be told: a zero byte is in none.
std::string takeName(fuzz::Input* input, std::size_t least, std::size_t most) {
  std::string name(input->takeBytes(input->takeByte() % (most + 1)));
  for (char& each : name)
    if (each == '\0') each = '0';
  if (name.size() < least) name = "a";
  return name;
}

void checkAsFact(fuzz::Input input, dch::SharedRegistrations* registrations) {
  const unsigned choice = input.takeByte();
  dch::ProviderFact fact;
  fact.kind = static_cast<Kind>(choice % 4);
  fact.application = takeName(&input, 1, suite::longestApplName);
  if (fact.kind == Kind::registered) {
    fact.registration = registrations->of(input.takeRest());
    if (fact.registration == nullptr) return;
    if ((choice & 0x10) == 0) fact.application = fact.registration->applName;
  } else if (fact.kind != Kind::unregistered) {
    fact.group = takeName(&input, 1, suite::longestName);
    fact.source = takeName(&input, 0, DCH_MAX_SOURCE_NAME);
  }
  const std::string line = dch::providerLine(fact);
  const bool isOfAnother =
      fact.registration != nullptr && fact.registration->applName != fact.application;
  const auto again = dch::parseProviderLine(line, *registrations);
  require(again.has_value() == !isOfAnother, "a line leads back");
  require(isLine(line) == !isOfAnother, "a line as it is to be");
  if (!again) return;
  require(again->kind == fact.kind && again->application == fact.application &&
              again->group == fact.group && again->source == fact.source &&
              again->registration == fact.registration,
          "a line says the same");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t count) {
  dch::SharedRegistrations registrations;
  checkAsLine({reinterpret_cast<const char*>(bytes), count}, &registrations);
  checkAsFact({bytes, count}, &registrations);
  return 0;
}
