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

}  // namespace dch
