#include "dch/link/exchanges.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <utility>

#include "dch/link/subject.h"

namespace dch {

namespace {

// What a user may do does not change often, and each try costs a connection.
constexpr std::chrono::seconds firstPause{60}, longestPause{3'600};

// An exchange that goes on for so long is permitted.
constexpr std::chrono::seconds permittedAfter{60};

}  // namespace

Exchanges::Exchanges(const std::string& site, const Epoch& run, std::shared_ptr<LiveRows> rows,
                     std::shared_ptr<SiteProviders> providers, LinkLog& log,
                     const std::function<void()>& wake)
    : _ownName(subjectToken(site)),
      _rows(std::move(rows)),
      _providers(site, run, std::move(providers), wake),
      _log(log),
      _ofRows{"the rights on rows", "\"zord.live.",
              "so subscribers get no rows of other sites, nor those there of this one; the rows "
              "are published all the same",
              firstPause},
      _ofProviders{"the rights on providers", "\"zord.known.",
                   "so consumers see no applications of other sites, or those there none of this "
                   "one",
                   firstPause} {}

void Exchanges::work(LiveConnection& connection) {
  begin(_rows, &_ofRows, connection);
  begin(_providers, &_ofProviders, connection);
  _rows.work();
  _providers.work();
}

template <class Exchange>
void Exchanges::begin(Exchange& exchange, Turn* turn, LiveConnection& connection) {
  const auto now = Clock::now();
  if (!exchange.isOn()) {
    if (now < turn->notBefore) return;
    exchange.begin(connection);
    turn->since = now;
  } else if (now - turn->since >= permittedAfter) {
    _log.forget(turn->rights);
    turn->pause = firstPause;
  }
}

// Of all groups, or of all other sites: which one it was is by chance.
std::string Exchanges::told(std::string_view refusal, const Turn& turn) const {
  const std::size_t name = refusal.find(turn.subject) + std::strlen(turn.subject);
  const std::size_t end = refusal.find('"', name), dot = refusal.find('.', name);
  if (end == std::string_view::npos) return std::string(refusal);
  const std::string behind(refusal.substr(end));
  if (dot < end) return std::string(refusal.substr(0, dot)) + ".>" + behind;
  if (refusal.substr(name, end - name) == _ownName) return std::string(refusal);
  return std::string(refusal.substr(0, name)) + '*' + behind;
}

void Exchanges::end() noexcept {
  _rows.end();
  _providers.end();
}

// The server says of a connection only once that something is not permitted: the next one begins
// without it.
bool Exchanges::noteRefusal(std::string_view refusal) noexcept {
  for (Turn* const each : {&_ofRows, &_ofProviders}) {
    if (refusal.find(each->subject) == std::string_view::npos) continue;
    try {
      _log.tellOnce(each->rights, told(refusal, *each) + "; " + each->effect);
    } catch (const std::bad_alloc&) {
      // It is told the next time.
    }
    each->notBefore = Clock::now() + each->pause;
    each->pause = std::min(2 * each->pause, longestPause);
    return true;
  }
  return false;
}

}  // namespace dch
