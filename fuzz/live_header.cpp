// What a live row says of itself, its subject and its header: each leads back to what it was made
// of, and nothing else is taken for one.
#include "dch/link/live_header.h"

#include "dch/link/subject.h"
#include "fuzz/support/input.h"
#include "fuzz/support/require.h"
#include "fuzz/support/text_forms.h"

namespace {

using fuzz::require;

// How many bytes an escaped name stands for.
std::size_t lengthOf(std::string_view escaped) {
  if (escaped == "%") return 0;
  std::size_t length = 0;
  for (std::size_t index = 0; index < escaped.size(); ++length)
    index += escaped[index] == '%' ? 3 : 1;
  return length;
}

bool isName(std::string_view token, std::size_t longest) {
  return fuzz::isEscaped(token, "-_") && lengthOf(token) > 0 && lengthOf(token) <= longest;
}

bool isSubject(std::string_view text) {
  const auto tokens = fuzz::split(text, '.');
  return tokens.size() == 5 && tokens[0] == "zord" && tokens[1] == "live" &&
         isName(tokens[2], 64) && isName(tokens[3], 20) && isName(tokens[4], 32);
}

bool isHeader(std::string_view text) {
  const auto fields = fuzz::split(text, ' ');
  return fields.size() == 5 && fields[0] == "1" && fuzz::isEpoch(fields[1]) && fields[2] != "0" &&
         fuzz::isCount(fields[2], fuzz::mostUnsigned) && fuzz::isNumber(fields[3], fuzz::most64) &&
         fuzz::isEscaped(fields[4], "_") && lengthOf(fields[4]) <= 32;
}

void checkAsText(std::string_view text) {
  const auto subject = dch::parseLiveSubject(text);
  require(subject.has_value() == isSubject(text), "what a subject is");
  require(!subject || dch::liveSubject(subject->site, subject->application, subject->group) == text,
          "a subject has one text");
  const auto header = dch::parseLiveHeader(text);
  require(header.has_value() == isHeader(text), "what a header is");
  require(!header || dch::liveHeaderText(*header) == text, "a header has one text");
}

void checkAsHeader(fuzz::Input input) {
  dch::LiveHeader header;
  header.run = fuzz::takeEpoch(&input);
  header.count = fuzz::take<std::uint64_t>(&input);
  header.time = fuzz::take<dch::Time>(&input);
  header.source = input.takeRest();
  const auto back = dch::parseLiveHeader(dch::liveHeaderText(header));
  if (header.count > 0 && header.source.size() <= 32)
    require(back == header, "a header leads back");
  else
    require(!back, "no other is taken");
}

void checkAsNames(fuzz::Input input) {
  const dch::RowSubject made{std::string(input.takeLine()), std::string(input.takeLine()),
                             std::string(input.takeRest())};
  const auto back =
      dch::parseLiveSubject(dch::liveSubject(made.site, made.application, made.group));
  const auto isGood = [](const std::string& name, std::size_t longest) {
    return !name.empty() && name.size() <= longest;
  };
  if (isGood(made.site, 64) && isGood(made.application, 20) && isGood(made.group, 32))
    require(back == made, "a subject leads back");
  else
    require(!back, "no other is taken");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t count) {
  checkAsText({reinterpret_cast<const char*>(bytes), count});
  checkAsHeader({bytes, count});
  checkAsNames({bytes, count});
  return 0;
}
