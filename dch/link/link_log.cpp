#include "dch/link/link_log.h"

#include <new>

namespace dch {

namespace {

// A text that is another one each time is not to fill the memory.
constexpr std::size_t mostTold = 1'000;

std::string lineWith(std::string_view text) {
  return "link: " + std::string(text);
}

}  // namespace

void LinkLog::tell(std::string_view line) noexcept {
  try {
    const std::lock_guard lock(_mutex);
    _lines.push_back(lineWith(line));
  } catch (const std::bad_alloc&) {
  }
}

void LinkLog::tellOnce(std::string_view about, std::string_view line) noexcept {
  try {
    const std::lock_guard lock(_mutex);
    std::pair told{std::string(about), std::string(line)};
    if (_told.size() == mostTold || _told.contains(told)) return;
    _lines.push_back(lineWith(line));
    _told.insert(std::move(told));
  } catch (const std::bad_alloc&) {
  }
}

bool LinkLog::forget(std::string_view about) noexcept {
  const std::lock_guard lock(_mutex);
  return std::erase_if(_told, [&](const auto& each) { return each.first == about; }) > 0;
}

std::vector<std::string> LinkLog::takeLines() {
  const std::lock_guard lock(_mutex);
  return std::exchange(_lines, {});
}

}  // namespace dch
