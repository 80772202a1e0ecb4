#include "dch/link/subject.h"

#include <initializer_list>

#include "dch/link/escaped_name.h"
#include "dch/link/link_settings.h"
#include "suite/registration.h"

namespace dch {

namespace {

constexpr std::string_view plainInTokens = "-_";

constexpr std::string_view keptRows = "zord.rows", liveRows = "zord.live";

bool isName(std::string_view name, std::size_t longest) {
  return !name.empty() && name.size() <= longest;
}

std::string subjectOf(std::string_view start, std::initializer_list<std::string_view> names) {
  std::string subject(start);
  for (const std::string_view name : names) (subject += '.') += subjectToken(name);
  return subject;
}

std::optional<RowSubject> parseSubject(std::string_view text, std::string_view start) {
  if (!text.starts_with(start) || !text.substr(start.size()).starts_with('.')) return std::nullopt;
  text.remove_prefix(start.size() + 1);
  const std::size_t first = text.find('.');
  const std::size_t last = text.rfind('.');
  if (first == last) return std::nullopt;
  auto site = nameOfToken(text.substr(0, first));
  auto application = nameOfToken(text.substr(first + 1, last - first - 1));
  auto group = nameOfToken(text.substr(last + 1));
  if (!site || !application || !group) return std::nullopt;
  return RowSubject{*std::move(site), *std::move(application), *std::move(group)};
}

}  // namespace

std::string subjectToken(std::string_view name) {
  return escapedName(name, plainInTokens);
}

std::optional<std::string> nameOfToken(std::string_view token) {
  return unescapedName(token, plainInTokens);
}

std::string rowSubject(std::string_view site, std::string_view application,
                       std::string_view group) {
  return subjectOf(keptRows, {site, application, group});
}

std::optional<RowSubject> parseRowSubject(std::string_view text) {
  return parseSubject(text, keptRows);
}

std::string liveSubject(std::string_view site, std::string_view application,
                        std::string_view group) {
  return subjectOf(liveRows, {site, application, group});
}

std::optional<std::string> liveSubjectsOf(std::string_view topic) {
  const std::size_t end = topic.find('\0');
  if (end == std::string_view::npos) return std::nullopt;
  const std::string_view application = topic.substr(0, end), group = topic.substr(end + 1);
  if (!isName(application, suite::longestApplName) || !isName(group, suite::longestName))
    return std::nullopt;
  return subjectOf("zord.live.*", {application, group});
}

std::optional<RowSubject> parseLiveSubject(std::string_view text) {
  auto subject = parseSubject(text, liveRows);
  if (subject && isName(subject->site, longestSiteName) &&
      isName(subject->application, suite::longestApplName) &&
      isName(subject->group, suite::longestName))
    return subject;
  return std::nullopt;
}

}  // namespace dch
