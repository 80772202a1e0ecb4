#include "dch/link/row_header.h"

#include "dch/link/escaped_name.h"
#include "dch/link/number_text.h"
#include "dch/link/text_fields.h"

namespace dch {

namespace {

constexpr std::string_view headerVersion = "1", sameEpoch = "-";

}  // namespace

std::string rowHeaderText(const RowHeader& header) {
  std::string text(headerVersion);
  const auto add = [&](std::string_view field) { (text += ' ') += field; };
  add(epochText(header.name.epoch));
  add(std::to_string(header.name.number));
  add(header.previous.epoch == header.name.epoch ? sameEpoch : epochText(header.previous.epoch));
  add(std::to_string(header.previous.number));
  add(std::to_string(header.time));
  add(std::to_string(header.handle));
  add(escapedName(header.source, plainInHeaders));
  return text;
}

std::optional<RowHeader> parseRowHeader(std::string_view text) {
  const auto fields = fieldsOf<8>(text);
  if (!fields) return std::nullopt;
  const auto& [version, epochDigits, number, previousDigits, previousNumber, time, handle,
               escaped] = *fields;
  const auto epoch = parseEpoch(epochDigits);
  const auto previousEpoch = previousDigits == sameEpoch ? epoch : parseEpoch(previousDigits);
  auto source = unescapedName(escaped, plainInHeaders);
  if (!epoch || !previousEpoch || !source) return std::nullopt;
  RowHeader header{{*epoch, numberIn<std::int64_t>(number)},
                   {*previousEpoch, numberIn<std::int64_t>(previousNumber)},
                   numberIn<Time>(time),
                   numberIn<ZORA_Long>(handle),
                   *std::move(source)};
  if (header.name.number <= header.previous.number || header.previous.number < 0)
    return std::nullopt;
  // A header is written in one way only: what was something else is written differently now.
  if (rowHeaderText(header) != text) return std::nullopt;
  return header;
}

}  // namespace dch
