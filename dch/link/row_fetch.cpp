#include "dch/link/row_fetch.h"

#include "dch/link/number_text.h"
#include "dch/link/subject.h"

namespace dch {

namespace {

constexpr std::string_view endVersion = "1", all = "all", more = "more";

// Takes the text up to the next one of these, and that; the rest when there is none.
std::string_view takeUpTo(char end, std::string_view* text) {
  const std::size_t length = text->find(end);
  const std::string_view taken = text->substr(0, length);
  text->remove_prefix(length == std::string_view::npos ? text->size() : length + 1);
  return taken;
}

std::string nameText(const RowName& name) {
  return epochText(name.epoch) + ' ' + std::to_string(name.number);
}

std::optional<RowName> takeName(char end, std::string_view* text) {
  const auto epoch = parseEpoch(takeUpTo(' ', text));
  const auto number = numberIn<std::int64_t>(takeUpTo(end, text));
  if (!epoch) return std::nullopt;
  return RowName{*epoch, number};
}

}  // namespace

std::string fetchSubject(std::string_view site) {
  return "zord.fetch." + subjectToken(site);
}

std::string fetchRequestText(const std::vector<RowName>& names) {
  std::string text;
  for (const RowName& each : names) text += nameText(each) + '\n';
  return text;
}

std::optional<std::vector<RowName>> parseFetchRequest(std::string_view text) {
  std::vector<RowName> names;
  for (std::string_view rest = text; !rest.empty();) {
    const auto name = takeName('\n', &rest);
    if (!name || names.size() == mostFetchNames) return std::nullopt;
    names.push_back(*name);
  }
  // A name is written in one way only: what was something else is written differently now.
  if (fetchRequestText(names) != text) return std::nullopt;
  return names;
}

std::string fetchEndText(const FetchEnd& end) {
  return std::string(endVersion) + ' ' + nameText(end.upTo) + ' ' + std::to_string(end.rows) + ' ' +
         std::string(end.isAll ? all : more) + ' ' + epochText(end.run);
}

std::optional<FetchEnd> parseFetchEnd(std::string_view text) {
  std::string_view rest = text;
  takeUpTo(' ', &rest);
  const auto upTo = takeName(' ', &rest);
  if (!upTo) return std::nullopt;
  const auto rows = numberIn<std::uint64_t>(takeUpTo(' ', &rest));
  const bool isAll = takeUpTo(' ', &rest) == all;
  const auto run = parseEpoch(rest);
  if (!run) return std::nullopt;
  const FetchEnd end{*upTo, rows, isAll, *run};
  if (fetchEndText(end) != text) return std::nullopt;
  return end;
}

}  // namespace dch
