#include "dch/web/request_target.h"

#include <algorithm>
#include <charconv>

#include "dch/core/log.h"
#include "dch/web/http_status.h"
#include "dch/web/text_parts.h"
#include "dch/web/web_error.h"

namespace dch {

namespace {

constexpr std::size_t longestShown = 60;

// As forms write it: a plus sign is a blank.
std::string decoded(std::string_view text) {
  std::string withBlanks(text);
  std::replace(withBlanks.begin(), withBlanks.end(), '+', ' ');
  std::optional<std::string> result = percentDecoded(withBlanks);
  if (!result)
    throw WebError(http_status::badRequest,
                   "two hexadecimal digits have to follow each % in the address, "
                   "and do not in " +
                       shown(text));
  return *std::move(result);
}

}  // namespace

std::string shown(std::string_view text) {
  if (text.size() <= longestShown) return "'" + printable(text) + "'";
  return "'" + printable(text.substr(0, longestShown)) + "...'";
}

Parameters::Parameters(std::string_view query) {
  while (!query.empty()) {
    std::string_view value = takeUpTo('&', &query);
    if (value.empty()) continue;
    const std::string name = decoded(takeUpTo('=', &value));
    if (find(name))
      throw WebError(http_status::badRequest, "parameter " + shown(name) + " is there twice");
    _all.emplace_back(name, decoded(value));
  }
}

void Parameters::allow(std::initializer_list<std::string_view> names) const {
  for (const auto& [name, value] : _all) {
    if (std::find(names.begin(), names.end(), name) != names.end()) continue;
    std::string known;
    for (const std::string_view each : names) (known += known.empty() ? "" : ", ") += each;
    throw WebError(http_status::badRequest,
                   "unknown parameter " + shown(name) + "; " +
                       (known.empty() ? "there are none here" : "known are " + known));
  }
}

std::optional<std::string_view> Parameters::find(std::string_view name) const {
  for (const auto& [known, value] : _all)
    if (known == name) return value;
  return std::nullopt;
}

std::string_view Parameters::get(std::string_view name) const {
  const std::optional<std::string_view> value = find(name);
  if (!value)
    throw WebError(http_status::badRequest, "parameter '" + std::string(name) + "' is missing");
  return *value;
}

std::optional<long long> Parameters::number(std::string_view name, long long least,
                                            long long most) const {
  const std::optional<std::string_view> text = find(name);
  if (!text) return std::nullopt;
  long long value = 0;
  const char* const end = text->data() + text->size();
  const auto [stopped, error] = std::from_chars(text->data(), end, value);
  if (error != std::errc() || stopped != end || value < least || value > most)
    throw WebError(http_status::badRequest, "'" + std::string(name) +
                                                "' has to be a whole number from " +
                                                std::to_string(least) + " to " +
                                                std::to_string(most) + ", not " + shown(*text));
  return value;
}

bool Parameters::flag(std::string_view name) const {
  const std::optional<std::string_view> value = find(name);
  if (value && !value->empty())
    throw WebError(http_status::badRequest, "'" + std::string(name) + "' takes no value");
  return value.has_value();
}

RequestTarget parseTarget(std::string_view target) {
  if (target.empty() || target.front() != '/')
    throw WebError(http_status::badRequest,
                   "the address has to begin with /, and " + shown(target) + " does not");
  const std::string_view path = takeUpTo('?', &target);
  return {path, target};
}

}  // namespace dch
