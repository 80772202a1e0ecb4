#include "dch/link/live_header.h"

#include "dch/link/escaped_name.h"
#include "dch/link/number_text.h"
#include "dch/link/text_fields.h"
#include "zordchcl/zordchcl.h"

namespace dch {

namespace {

constexpr std::string_view liveVersion = "1";

}  // namespace

std::string liveHeaderText(const LiveHeader& header) {
  std::string text(liveVersion);
  const auto add = [&](std::string_view field) { (text += ' ') += field; };
  add(epochText(header.run));
  add(std::to_string(header.count));
  add(std::to_string(header.time));
  add(escapedName(header.source, plainInHeaders));
  return text;
}

std::optional<LiveHeader> parseLiveHeader(std::string_view text) {
  const auto fields = fieldsOf<5>(text);
  if (!fields) return std::nullopt;
  const auto& [version, runDigits, count, time, escaped] = *fields;
  const auto run = parseEpoch(runDigits);
  auto source = unescapedName(escaped, plainInHeaders);
  if (!run || !source || source->size() > DCH_MAX_SOURCE_NAME) return std::nullopt;
  LiveHeader header{*run, numberIn<std::uint64_t>(count), numberIn<Time>(time), *std::move(source)};
  // A header is written in one way only: what was something else is written differently now.
  if (header.count == 0 || liveHeaderText(header) != text) return std::nullopt;
  return header;
}

}  // namespace dch
