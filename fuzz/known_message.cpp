// The question for what a site says of its providers, and what an answer says of itself: each leads
// back to what it was made of, and nothing else is taken for one.
#include "dch/link/known_message.h"

#include "fuzz/support/input.h"
#include "fuzz/support/require.h"
#include "fuzz/support/text_forms.h"

namespace {

using fuzz::require;

bool isKnownQuestion(std::string_view text) {
  return text.substr(0, 2) == "1 " && text.size() <= 2 + dch::longestProviderKey;
}

bool isKnownHeader(std::string_view text) {
  const auto fields = fuzz::split(text, ' ');
  return fields.size() == 4 && fields[0] == "1" && fuzz::isEpoch(fields[1]) && fields[2] != "0" &&
         fuzz::isCount(fields[2], fuzz::mostUnsigned) &&
         (fields[3] == "more" || fields[3] == "all");
}

void checkAsText(std::string_view text) {
  const auto key = dch::parseKnownQuestion(text);
  require(key.has_value() == isKnownQuestion(text), "what a question is");
  require(!key || dch::knownQuestion(*key) == text, "a question has one text");
  const auto header = dch::parseKnownHeader(text);
  require(header.has_value() == isKnownHeader(text), "what a header is");
  require(!header || dch::knownHeaderText(*header) == text, "a header has one text");
}

void checkAsKey(std::string_view key) {
  const auto back = dch::parseKnownQuestion(dch::knownQuestion(key));
  if (key.size() <= dch::longestProviderKey)
    require(back == key, "a question leads back");
  else
    require(!back, "no longer key is taken");
}

void checkAsHeader(fuzz::Input input) {
  dch::KnownHeader header;
  header.isAll = input.takeByte() % 2 == 1;
  header.run = fuzz::takeEpoch(&input);
  header.revision = fuzz::take<std::uint64_t>(&input);
  const auto back = dch::parseKnownHeader(dch::knownHeaderText(header));
  if (header.revision > 0)
    require(back == header, "a header leads back");
  else
    require(!back, "no header is without a revision");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t count) {
  const std::string_view text(reinterpret_cast<const char*>(bytes), count);
  checkAsText(text);
  checkAsKey(text);
  checkAsHeader({bytes, count});
  return 0;
}
