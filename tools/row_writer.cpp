#include "tools/row_writer.h"

#include <ctime>

namespace tools {

std::string formatTime(std::chrono::system_clock::time_point time) {
  const auto milliseconds =
      std::chrono::duration_cast<std::chrono::milliseconds>(time.time_since_epoch()).count();
  const std::time_t seconds = static_cast<std::time_t>(milliseconds / 1000);
  std::tm parts{};
  gmtime_r(&seconds, &parts);
  char date[32];
  char text[48];
  std::strftime(date, sizeof date, "%Y-%m-%dT%H:%M:%S", &parts);
  std::snprintf(text, sizeof text, "%s.%03dZ", date, static_cast<int>(milliseconds % 1000));
  return text;
}

std::vector<std::string> attributeNames(const PushedRow& row) {
  std::vector<std::string> names;
  for (const PushedValue& value : row.values) names.push_back(value.name);
  return names;
}

}  // namespace tools
