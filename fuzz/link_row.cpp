// The texts by which a row is known outside of its site, subject and header, and those by which it
// is asked for: each leads back to what it was made of, and nothing else is taken for one.
#include <algorithm>
#include <limits>
#include <vector>

#include "dch/link/row_fetch.h"
#include "dch/link/row_header.h"
#include "dch/link/subject.h"
#include "fuzz/support/input.h"
#include "fuzz/support/require.h"
#include "fuzz/support/text_forms.h"

namespace {

using fuzz::isCount, fuzz::isEpoch, fuzz::isEscaped, fuzz::isNumber, fuzz::most64,
    fuzz::mostUnsigned;
using fuzz::split, fuzz::take, fuzz::takeEpoch;

bool isSubject(std::string_view text) {
  const auto tokens = split(text, '.');
  return tokens.size() == 5 && tokens[0] == "zord" && tokens[1] == "rows" &&
         isEscaped(tokens[2], "-_") && isEscaped(tokens[3], "-_") && isEscaped(tokens[4], "-_");
}

// Both are numbers.
bool isBehind(std::string_view number, std::string_view previous) {
  if (previous[0] == '-' || number[0] == '-') return false;
  if (number.size() != previous.size()) return number.size() > previous.size();
  return number > previous;
}

bool isHeader(std::string_view text) {
  constexpr std::string_view most32 = "2147483647";
  const auto fields = split(text, ' ');
  return fields.size() == 8 && fields[0] == "1" && isEpoch(fields[1]) &&
         isNumber(fields[2], most64) &&
         (fields[3] == "-" || (isEpoch(fields[3]) && fields[3] != fields[1])) &&
         isNumber(fields[4], most64) && isBehind(fields[2], fields[4]) &&
         isNumber(fields[5], most64) && isNumber(fields[6], most32) && isEscaped(fields[7], "_");
}

bool isFetchRequest(std::string_view text) {
  if (text.empty()) return true;
  auto lines = split(text, '\n');
  if (!lines.back().empty() || lines.size() - 1 > dch::mostFetchNames) return false;
  lines.pop_back();
  for (const std::string_view line : lines) {
    const auto fields = split(line, ' ');
    if (fields.size() != 2 || !isEpoch(fields[0]) || !isNumber(fields[1], most64)) return false;
  }
  return true;
}

bool isFetchEnd(std::string_view text) {
  const auto fields = split(text, ' ');
  return fields.size() == 6 && fields[0] == "1" && isEpoch(fields[1]) &&
         isNumber(fields[2], most64) && isCount(fields[3], mostUnsigned) &&
         (fields[4] == "all" || fields[4] == "more") && isEpoch(fields[5]);
}

void checkAsFetch(std::string_view text) {
  const auto request = dch::parseFetchRequest(text);
  fuzz::require(request.has_value() == isFetchRequest(text), "what a request is");
  fuzz::require(!request || dch::fetchRequestText(*request) == text, "a request has one text");
  const auto end = dch::parseFetchEnd(text);
  fuzz::require(end.has_value() == isFetchEnd(text), "what an end is");
  fuzz::require(!end || dch::fetchEndText(*end) == text, "an end has one text");
}

void checkAsText(std::string_view text) {
  const auto name = dch::nameOfToken(text);
  fuzz::require(name.has_value() == isEscaped(text, "-_"), "what a token is");
  fuzz::require(!name || dch::subjectToken(*name) == text, "a name has one token");
  const auto subject = dch::parseRowSubject(text);
  fuzz::require(subject.has_value() == isSubject(text), "what a subject is");
  fuzz::require(
      !subject || dch::rowSubject(subject->site, subject->application, subject->group) == text,
      "a subject has one text");
  const auto header = dch::parseRowHeader(text);
  fuzz::require(header.has_value() == isHeader(text), "what a header is");
  fuzz::require(!header || dch::rowHeaderText(*header) == text, "a header has one text");
}

// At least this one.
std::int64_t takeNumber(fuzz::Input* input, std::int64_t least) {
  constexpr auto most = std::numeric_limits<std::int64_t>::max();
  return std::max(take<std::int64_t>(input) & most, least);
}

void checkAsHeader(fuzz::Input input) {
  dch::RowHeader header;
  header.name = {takeEpoch(&input), takeNumber(&input, 1)};
  const bool isSameRun = (input.takeByte() & 1) != 0;
  header.previous = {isSameRun ? header.name.epoch : takeEpoch(&input),
                     takeNumber(&input, 0) % header.name.number};
  header.time = take<dch::Time>(&input);
  header.handle = take<ZORA_Long>(&input);
  header.source = input.takeRest();
  const std::string text = dch::rowHeaderText(header);
  fuzz::require(isHeader(text), "a header as it is to be");
  fuzz::require(dch::parseRowHeader(text) == header, "a header leads back");
}

void checkAsFetchOf(fuzz::Input input) {
  const std::size_t count = input.takeByte() % (dch::mostFetchNames + 1);
  std::vector<dch::RowName> names;
  while (names.size() < count) names.push_back({takeEpoch(&input), take<std::int64_t>(&input)});
  const std::string request = dch::fetchRequestText(names);
  fuzz::require(isFetchRequest(request), "a request as it is to be");
  fuzz::require(dch::parseFetchRequest(request) == names, "a request leads back");
  const dch::FetchEnd end{{takeEpoch(&input), take<std::int64_t>(&input)},
                          take<std::uint64_t>(&input),
                          (input.takeByte() & 1) != 0,
                          takeEpoch(&input)};
  fuzz::require(isFetchEnd(dch::fetchEndText(end)), "an end as it is to be");
  fuzz::require(dch::parseFetchEnd(dch::fetchEndText(end)) == end, "an end leads back");
}

void checkAsNames(fuzz::Input input) {
  const std::string_view names[] = {input.takeLine(), input.takeLine(), input.takeRest()};
  const std::string subject = dch::rowSubject(names[0], names[1], names[2]);
  fuzz::require(isSubject(subject), "a subject as it is to be");
  const auto tokens = split(subject, '.');
  for (std::size_t index = 0; index < 3; ++index)
    fuzz::require(dch::nameOfToken(tokens[index + 2]) == names[index], "a token leads back");
  const dch::RowSubject made{std::string(names[0]), std::string(names[1]), std::string(names[2])};
  fuzz::require(dch::parseRowSubject(subject) == made, "a subject leads back");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t count) {
  checkAsText({reinterpret_cast<const char*>(bytes), count});
  checkAsFetch({reinterpret_cast<const char*>(bytes), count});
  checkAsHeader({bytes, count});
  checkAsFetchOf({bytes, count});
  checkAsNames({bytes, count});
  return 0;
}
