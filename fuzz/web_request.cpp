// The addresses and header fields that browsers send, a line each: target, Host, Authorization,
// Cookie and Accept. What is understood can be written again and means the same.
#include <algorithm>
#include <array>
#include <cstdio>
#include <string>
#include <string_view>

#include "dch/web/access.h"
#include "dch/web/metrics_text.h"
#include "dch/web/moment.h"
#include "dch/web/request_target.h"
#include "dch/web/web_error.h"
#include "fuzz/support/require.h"

using fuzz::require;

namespace {

constexpr dch::Time now = 1'795'300'000'000'000;
constexpr char token[] = "token-of-some-length";
constexpr std::string_view names[] = {"application", "group", "source", "since",
                                      "until",       "limit", "points", "format"};

bool isPrintable(std::string_view text) {
  return std::all_of(text.begin(), text.end(), [](char each) { return each >= ' ' && each < 127; });
}

std::string encoded(std::string_view text) {
  std::string result;
  for (const char each : text) {
    char digits[4];
    std::snprintf(digits, sizeof digits, "%%%02X", static_cast<unsigned char>(each));
    result += digits;
  }
  return result;
}

void checkMoment(std::string_view text) {
  const auto moment = dch::parseMoment(text, now);
  if (!moment) return;
  require(*moment <= 253'402'300'799'999'999, "a moment before the year 10000");
  constexpr dch::Time firstOfYear0 = -62'167'219'200'000'000;
  if (*moment >= firstOfYear0)
    require(dch::parseMoment(dch::momentText(*moment), now) == moment, "a moment that is the same");
}

void checkNumber(const dch::Parameters& asked, std::string_view name, std::string_view value) {
  try {
    const auto number = asked.number(name, 1, 100'000);
    require(number && *number >= 1 && *number <= 100'000, "a number in its bounds");
    require(value.ends_with(std::to_string(*number)), "the number that was asked for");
  } catch (const dch::WebError& error) {
    require(isPrintable(error.what()), "a sentence");
  }
}

void checkParameters(std::string_view query) {
  const dch::Parameters asked(query);
  std::string again;
  for (const std::string_view name : names) {
    const auto value = asked.find(name);
    if (!value) continue;
    require(asked.get(name) == *value, "the value that was found");
    checkMoment(*value);
    checkNumber(asked, name, *value);
    again += '&' + encoded(name) + '=' + encoded(*value);
  }
  const dch::Parameters same(again);
  for (const std::string_view name : names)
    require(asked.find(name) == same.find(name), "a value that is the same");
  same.allow({"application", "group", "source", "since", "until", "limit", "points", "format"});
  try {
    asked.allow({"application"});
    for (const std::string_view name : names)
      require(name == "application" || !asked.find(name), "parameters that are allowed");
  } catch (const dch::WebError& error) {
    require(isPrintable(error.what()), "a sentence");
  }
}

void checkTarget(std::string_view text) {
  require(isPrintable(dch::shown(text)), "an address that can be shown");
  try {
    const dch::RequestTarget target = dch::parseTarget(text);
    require(target.path.starts_with('/') && target.path.find('?') == std::string_view::npos,
            "a path");
    const std::string whole = std::string(target.path) + '?' + std::string(target.query);
    require(whole == text || whole == std::string(text) + '?', "nothing lost of the address");
    checkParameters(target.query);
  } catch (const dch::WebError& error) {
    require(isPrintable(error.what()), "a sentence");
  }
}

void checkHost(const dch::Access& access, const std::string& host) {
  if (!access.allowsHost(host)) return;
  require(isPrintable(host), "a host that is a name");
  require(host.find_first_of(" /@,\\?#") == std::string::npos, "a host and nothing else");
  std::string capital = host;
  std::transform(capital.begin(), capital.end(), capital.begin(), [](char each) {
    return each >= 'a' && each <= 'z' ? static_cast<char>(each - 'a' + 'A') : each;
  });
  require(access.allowsHost(capital), "a host in capital letters");
  require(!access.allowsHost(host + ".evil.example"), "no host of somebody else's");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size);

int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  std::string_view rest(reinterpret_cast<const char*>(data), size);
  std::array<std::string, 5> lines;
  for (std::string& line : lines) {
    const std::size_t end = std::min(rest.find('\n'), rest.size());
    line = rest.substr(0, end);
    rest.remove_prefix(std::min(end + 1, rest.size()));
  }
  const auto& [target, host, authorization, cookies, accept] = lines;
  checkTarget(target);
  const dch::Access access{{"monitor.example"}, token};
  checkHost(access, host);
  if (access.allowsToken(authorization, cookies))
    require(authorization.find(token) != std::string::npos ||
                cookies.find(std::string(dch::tokenCookie) + '=' + token) != std::string::npos,
            "the token");
  require(dch::metricsFormFor(accept) == dch::metricsFormFor(accept + ","), "a form of metrics");
  return 0;
}
