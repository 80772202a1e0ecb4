#include "dch/link/live_out.h"

#include <new>

#include "dch/core/rows_out.h"
#include "dch/link/live_header.h"
#include "dch/link/subject.h"

namespace dch {

void LiveOut::rowKept(const Source& source, std::string_view message, std::string_view,
                      Time time) noexcept {
  if (message.size() > maxDatagramBytes) return;  // no subscriber reads it
  try {
    Group* const group = find(source);
    if (group == nullptr) {
      ++_lost;
      return;
    }
    const auto [isWanted, question] = _interest.pass(group->number, time);
    if (!isWanted) return;
    // Counted before anything fails: who gets the next one sees that this one is missing.
    const std::uint64_t count = ++group->rows;
    const bool isPut = _put({group->subject, liveHeaderText({_run, count, time, source.name}),
                             std::string(message), group->number, question});
    if (!isPut) ++_lost;
  } catch (const std::bad_alloc&) {
    ++_lost;
  }
}

// Null when there are too many. A group keeps its number, whatever becomes of its registration.
LiveOut::Group* LiveOut::find(const Source& source) {
  const auto known = _groups.find(source.group->topic);
  if (known != _groups.end()) return &known->second;
  if (_groups.size() == mostGroups) return nullptr;
  const SourceNames names = source.names();
  Group added{_groups.size(), liveSubject(_site, names.application, names.group)};
  return &_groups.emplace(source.group->topic, std::move(added)).first->second;
}

}  // namespace dch
