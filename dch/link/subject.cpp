#include "dch/link/subject.h"

#include "dch/link/escaped_name.h"

namespace dch {

namespace {

constexpr std::string_view plainInTokens = "-_";

}  // namespace

std::string subjectToken(std::string_view name) {
  return escapedName(name, plainInTokens);
}

std::optional<std::string> nameOfToken(std::string_view token) {
  return unescapedName(token, plainInTokens);
}

std::string rowSubject(std::string_view site, std::string_view application,
                       std::string_view group) {
  std::string subject = "zord.rows";
  for (const std::string_view name : {site, application, group})
    (subject += '.') += subjectToken(name);
  return subject;
}

std::optional<RowSubject> parseRowSubject(std::string_view text) {
  constexpr std::string_view start = "zord.rows.";
  if (!text.starts_with(start)) return std::nullopt;
  text.remove_prefix(start.size());
  const std::size_t first = text.find('.');
  const std::size_t last = text.rfind('.');
  if (first == last) return std::nullopt;
  auto site = nameOfToken(text.substr(0, first));
  auto application = nameOfToken(text.substr(first + 1, last - first - 1));
  auto group = nameOfToken(text.substr(last + 1));
  if (!site || !application || !group) return std::nullopt;
  return RowSubject{*std::move(site), *std::move(application), *std::move(group)};
}

}  // namespace dch
