#include "dch/link/live_topics.h"

#include <algorithm>
#include <iterator>
#include <new>

#include "dch/link/subject.h"

namespace dch {

bool LiveTopics::changed(std::string_view topic, bool isWanted, TimePoint now) noexcept {
  const std::lock_guard lock(_mutex);
  try {
    if (!isWanted)
      leave(topic, now);
    else if (liveSubjectsOf(topic))
      want(topic);
    else
      return true;
  } catch (const std::bad_alloc&) {
    ++_refused;
    return false;
  }
  if (!isWanted || listOf(Place::waiting).size() + listOf(Place::asked).size() <= mostAsked)
    return true;
  ++_refused;
  return false;
}

void LiveTopics::want(std::string_view name) {
  if (const auto known = _topics.find(name); known != _topics.end()) {
    if (known->second->place == Place::left) move(known->second, Place::asked);
    return;
  }
  List added;
  added.push_back({std::string(name)});
  _topics.emplace(name, added.begin());
  listOf(Place::waiting).splice(listOf(Place::waiting).end(), added);
}

void LiveTopics::leave(std::string_view name, TimePoint now) noexcept {
  const auto known = _topics.find(name);
  if (known == _topics.end()) return;
  const List::iterator topic = known->second;
  if (topic->place == Place::waiting) return remove(topic);
  topic->leftAt = now;
  move(topic, Place::left);
}

void LiveTopics::move(List::iterator topic, Place to) noexcept {
  listOf(to).splice(listOf(to).end(), listOf(topic->place), topic);
  topic->place = to;
}

void LiveTopics::remove(List::iterator topic) noexcept {
  _topics.erase(_topics.find(topic->name));
  listOf(topic->place).erase(topic);
}

void LiveTopics::restart() noexcept {
  const std::lock_guard lock(_mutex);
  List& left = listOf(Place::left);
  while (!left.empty()) remove(left.begin());
  List& asked = listOf(Place::asked);
  for (Topic& each : asked) each.place = Place::waiting;
  // Ahead of those for which there was no room.
  listOf(Place::waiting).splice(listOf(Place::waiting).begin(), asked);
}

LiveTopics::Steps LiveTopics::next(TimePoint now) {
  const std::lock_guard lock(_mutex);
  List &waiting = listOf(Place::waiting), &asked = listOf(Place::asked),
       &left = listOf(Place::left);
  const std::size_t room = mostAsked - asked.size();
  const std::size_t coming = std::min(waiting.size(), room);
  Steps steps;
  for (auto each = waiting.begin(); steps.toAsk.size() < coming; ++each)
    steps.toAsk.push_back(each->name);
  for (auto each = left.begin(); each != left.end(); ++each) {
    const bool isInTheWay = left.size() - steps.toLetGo.size() + coming > room;
    if (!isInTheWay && now - each->leftAt < longestWithoutSubscribers) break;
    steps.toLetGo.push_back(each->name);
  }
  for (std::size_t i = 0; i < coming; ++i) move(waiting.begin(), Place::asked);
  for (std::size_t i = 0; i < steps.toLetGo.size(); ++i) remove(left.begin());
  return steps;
}

std::uint64_t LiveTopics::refused() const {
  const std::lock_guard lock(_mutex);
  return _refused;
}

}  // namespace dch
