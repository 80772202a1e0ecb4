// link_log.h: what the operator is told of a link, each thing once.
#ifndef DCH_LINK_LINK_LOG_H
#define DCH_LINK_LINK_LOG_H

#include <mutex>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace dch {

// Any thread. A line for which there is no memory is not told.
class LinkLog {
 public:
  void tell(std::string_view line) noexcept;

  // Not again before that which it is about was forgotten: who tries again and again fails for the
  // same reasons.
  void tellOnce(std::string_view about, std::string_view line) noexcept;

  // It is over. Returns whether something was told about it.
  bool forget(std::string_view about) noexcept;

  // What was told since, for the log.
  std::vector<std::string> takeLines();

 private:
  std::mutex _mutex;
  std::set<std::pair<std::string, std::string>> _told;
  std::vector<std::string> _lines;
};

}  // namespace dch

#endif  // DCH_LINK_LINK_LOG_H
