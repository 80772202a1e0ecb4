#include "dch/net/child_programs.h"

#include <new>
#include <system_error>

namespace dch {

std::string ChildPrograms::start(ZORA_Long id, const ActionCommand& command) {
  const auto place = _running.try_emplace(id).first;
  try {
    place->second.emplace(command);
    return {};
  } catch (const std::system_error& error) {
    _running.erase(place);
    return error.what();
  } catch (const std::bad_alloc&) {
    _running.erase(place);
    throw;
  }
}

void ChildPrograms::collect(const Tell& tell) {
  for (auto next = _running.begin(); next != _running.end();) {
    const auto program = next++;
    const std::optional<ZORA_Long> result = program->second->takeResult();
    if (!result) continue;
    const ZORA_Long id = program->first;
    _running.erase(program);
    tell(id, *result);
  }
}

}  // namespace dch
