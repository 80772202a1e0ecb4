#include "dch/link/known_message.h"

#include "dch/link/number_text.h"
#include "dch/link/subject.h"
#include "dch/link/text_fields.h"

namespace dch {

namespace {

constexpr std::string_view knownVersion = "1", nothingBehind = "all", moreBehind = "more";

}  // namespace

std::string knownSubject(std::string_view site) {
  return "zord.known." + subjectToken(site);
}

std::string knownQuestion(std::string_view key) {
  return std::string(knownVersion) + ' ' + std::string(key);
}

std::optional<std::string> parseKnownQuestion(std::string_view text) {
  const auto fields = fieldsOf<2>(text);
  if (!fields) return std::nullopt;
  const auto& [version, key] = *fields;
  if (version != knownVersion || key.size() > longestProviderKey) return std::nullopt;
  return std::string(key);
}

std::string knownHeaderText(const KnownHeader& header) {
  std::string text(knownVersion);
  const auto add = [&](std::string_view field) { (text += ' ') += field; };
  add(epochText(header.run));
  add(std::to_string(header.revision));
  add(header.isAll ? nothingBehind : moreBehind);
  return text;
}

std::optional<KnownHeader> parseKnownHeader(std::string_view text) {
  const auto fields = fieldsOf<4>(text);
  if (!fields) return std::nullopt;
  const auto& [version, runDigits, revision, rest] = *fields;
  const auto run = parseEpoch(runDigits);
  if (!run) return std::nullopt;
  const KnownHeader header{*run, numberIn<std::uint64_t>(revision), rest == nothingBehind};
  // A header is written in one way only: what was something else is written differently now.
  if (header.revision == 0 || knownHeaderText(header) != text) return std::nullopt;
  return header;
}

}  // namespace dch
