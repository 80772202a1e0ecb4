#include "dch/web/moment.h"

#include <charconv>
#include <chrono>
#include <cstdint>
#include <cstdio>

namespace dch {

namespace {

constexpr Time second = 1'000'000;
constexpr int fractionDigits = 6;
constexpr Time mostSeconds = 253'402'300'799;  // the last one of the year 9999

// Takes that many digits, or with 0 as many as there are, off the text.
std::optional<Time> takeNumber(std::string_view* text, std::size_t digits = 0) {
  std::size_t count = 0;
  while (count < text->size() && (*text)[count] >= '0' && (*text)[count] <= '9') ++count;
  if (count == 0 || (digits != 0 && count != digits)) return std::nullopt;
  Time number = 0;
  if (std::from_chars(text->data(), text->data() + count, number).ec != std::errc())
    return std::nullopt;
  text->remove_prefix(count);
  return number;
}

bool take(char character, std::string_view* text) {
  if (text->empty() || text->front() != character) return false;
  text->remove_prefix(1);
  return true;
}

// A point and digits, or nothing: no microseconds.
std::optional<Time> takeFraction(std::string_view* text) {
  if (!take('.', text)) return 0;
  Time fraction = 0;
  std::size_t count = 0;
  for (; count < text->size() && (*text)[count] >= '0' && (*text)[count] <= '9'; ++count)
    if (count < fractionDigits) fraction = fraction * 10 + ((*text)[count] - '0');
  if (count == 0) return std::nullopt;
  for (std::size_t digit = count; digit < fractionDigits; ++digit) fraction *= 10;
  text->remove_prefix(count);
  return fraction;
}

std::optional<Time> unitOf(std::string_view text) {
  if (text == "s") return second;
  if (text == "m") return 60 * second;
  if (text == "h") return 3'600 * second;
  if (text == "d") return 86'400 * second;
  return std::nullopt;
}

std::optional<Time> parseAgo(std::string_view text, Time now) {
  const std::optional<Time> count = takeNumber(&text);
  const std::optional<Time> unit = unitOf(text);
  if (!count || !unit || *count > mostSeconds * second / *unit) return std::nullopt;
  return now - *count * *unit;
}

std::optional<Time> withFraction(Time seconds, std::string_view text, std::string_view end) {
  const std::optional<Time> fraction = takeFraction(&text);
  if (!fraction || text != end || seconds > mostSeconds) return std::nullopt;
  return seconds * second + *fraction;
}

// Without the fraction and what follows.
std::optional<Time> takeDateAndTime(std::string_view* text) {
  using namespace std::chrono;
  constexpr int hours = 24;
  constexpr int minutes = 60;
  const std::optional<Time> year = takeNumber(text, 4);
  if (!year || !take('-', text)) return std::nullopt;
  const std::optional<Time> month = takeNumber(text, 2);
  if (!month || !take('-', text)) return std::nullopt;
  const std::optional<Time> day = takeNumber(text, 2);
  if (!day || !take('T', text)) return std::nullopt;
  const year_month_day date(std::chrono::year(static_cast<int>(*year)),
                            std::chrono::month(static_cast<unsigned>(*month)),
                            std::chrono::day(static_cast<unsigned>(*day)));
  const std::optional<Time> hour = takeNumber(text, 2);
  if (!hour || !take(':', text)) return std::nullopt;
  const std::optional<Time> minute = takeNumber(text, 2);
  if (!minute || !take(':', text)) return std::nullopt;
  const std::optional<Time> seconds = takeNumber(text, 2);
  if (!date.ok() || *hour >= hours || *minute >= minutes || !seconds || *seconds >= minutes)
    return std::nullopt;
  return Time{sys_days(date).time_since_epoch().count()} * 86'400 + *hour * 3'600 + *minute * 60 +
         *seconds;
}

}  // namespace

std::optional<Time> parseMoment(std::string_view text, Time now) {
  if (take('-', &text)) return parseAgo(text, now);
  std::string_view rest = text;
  if (const std::optional<Time> seconds = takeDateAndTime(&rest))
    return withFraction(*seconds, rest, "Z");
  rest = text;
  const std::optional<Time> seconds = takeNumber(&rest);
  return seconds ? withFraction(*seconds, rest, "") : std::nullopt;
}

std::string momentText(Time time) {
  using namespace std::chrono;
  const auto point = sys_time<microseconds>(microseconds(time));
  const auto midnight = floor<days>(point);
  const year_month_day date(midnight);
  const hh_mm_ss<microseconds> clock(point - midnight);
  char text[48];
  std::snprintf(text, sizeof text, "%04d-%02u-%02uT%02d:%02d:%02d.%06dZ", int{date.year()},
                unsigned{date.month()}, unsigned{date.day()},
                static_cast<int>(clock.hours().count()), static_cast<int>(clock.minutes().count()),
                static_cast<int>(clock.seconds().count()),
                static_cast<int>(clock.subseconds().count()));
  return text;
}

}  // namespace dch
