#include "dch/core/remote_rows_in.h"

#include <new>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "dch/core/row_message.h"

namespace dch {

void RemoteRowsIn::take(LiveRow&& row) noexcept {
  try {
    const std::string topic = topicOf(row.application, row.group);
    if (!_core.hasSubscribers(topic)) return;
    std::vector<std::string_view> attributes;
    if (readRow(row.message, &attributes))
      takeWhole(topic, std::move(row));
    else
      ++_figures.refused;
  } catch (const std::bad_alloc&) {
    ++_figures.lost;
  }
}

void RemoteRowsIn::takeWhole(const std::string& topic, LiveRow&& row) {
  if (const std::optional<ZORA_Long> handle = _handles.find(namesOf(row)))
    push(topic, &row, *handle);
  else if (_handles.hold(std::move(row)))
    ask();
  else
    ++_figures.lost;
}

// A store that keeps them at once concludes them meanwhile.
void RemoteRowsIn::ask() noexcept {
  if (std::exchange(_isAsking, true)) return;
  try {
    while (std::optional<RemoteSourceSeen> source = _handles.toAsk()) {
      Entry entry{*std::move(source)};
      try {
        _store.append(&entry, this);
      } catch (const std::bad_alloc&) {
        conclude(std::move(entry), false);
      }
    }
  } catch (const std::bad_alloc&) {
    // With the next row, or when the next one is concluded.
  }
  _isAsking = false;
}

void RemoteRowsIn::conclude(Entry&& entry, bool isKept) noexcept {
  const auto& source = std::get<RemoteSourceSeen>(entry.change);
  std::vector<LiveRow> rows = _handles.concluded(source, isKept);
  try {
    const std::string topic = topicOf(source.application, source.group);
    for (LiveRow& row : rows)
      if (isKept)
        push(topic, &row, source.handle);
      else
        ++_figures.lost;
  } catch (const std::bad_alloc&) {
    _figures.lost += rows.size();
  }
  ask();
}

void RemoteRowsIn::push(const std::string& topic, LiveRow* row, ZORA_Long handle) {
  if (handle == 0) {
    ++_figures.withoutHandle;
    return;
  }
  if (!_core.hasSubscribers(topic)) return;
  setHandle(&row->message, handle);
  _core.publishRemote(topic, row->message);
  ++_figures.pushed;
}

}  // namespace dch
