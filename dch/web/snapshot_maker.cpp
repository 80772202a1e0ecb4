#include "dch/web/snapshot_maker.h"

#include <new>
#include <utility>

#include "dch/web/reused_text.h"

namespace dch {

void SnapshotMaker::begin(std::unique_ptr<Snapshot> used) noexcept {
  _snapshot = std::move(used);
  _revision = _registry.revision();
  _part = _revision == _formerRevision ? Part::sources : Part::applications;
  _applications = nullptr;
  _lastName.clear();
  _formerPlace = 0;
  _lastHandle = 0;
  _sourceCount = 0;
}

bool SnapshotMaker::addPiece() {
  try {
    if (_part == Part::rest) return removeRest();
    _part == Part::applications ? addApplications() : addSources();
    return false;
  } catch (const std::bad_alloc&) {
    _snapshot.reset();
    throw;
  }
}

std::unique_ptr<Snapshot> SnapshotMaker::take() noexcept {
  _snapshot->applications = _formerApplications;
  return std::move(_snapshot);
}

void SnapshotMaker::addApplications() {
  if (_applications == nullptr) _applications = std::make_shared<Snapshot::Applications>();
  for (std::size_t count = 0; count < mostApplications; ++count) {
    const Application* const application = _registry.nextApplication(_lastName);
    if (application == nullptr) {
      _formerApplications = std::move(_applications);
      _formerRevision = _revision;
      _part = Part::sources;
      return;
    }
    addApplication(application->registration);
    _lastName = application->name;
  }
}

// Of most the one in the snapshot before is still right.
void SnapshotMaker::addApplication(const suite::Registration& registration) {
  const Snapshot::Applications& former = *_formerApplications;
  while (_formerPlace < former.size() && former[_formerPlace]->applName < registration.applName)
    ++_formerPlace;
  if (_formerPlace < former.size() && former[_formerPlace]->text == registration.text)
    _applications->push_back(former[_formerPlace]);
  else
    _applications->push_back(std::make_shared<const suite::Registration>(registration));
}

void SnapshotMaker::addSources() {
  std::size_t bytes = 0;
  for (std::size_t count = 0; count < mostSources && bytes < mostBytes; ++count) {
    const Source* const source = _registry.nextSource(_lastHandle);
    if (source == nullptr) {
      _part = Part::rest;
      return;
    }
    if (source->group->isRegistered) bytes += addSource(*source);
    _lastHandle = source->handle;
  }
}

// Returns how large its row is.
std::size_t SnapshotMaker::addSource(const Source& source) {
  if (_sourceCount == _snapshot->sources.size()) _snapshot->sources.emplace_back();
  Snapshot::SourceState& state = _snapshot->sources[_sourceCount];
  reuse(&state.application, source.group->application->name);
  reuse(&state.group, source.group->name);
  reuse(&state.name, source.name);
  state.handle = source.handle;
  state.isOnline = source.isOnline;
  state.isCurrent = source.row && source.isOnline && source.row->isCurrent;
  state.rowTime = source.row ? source.row->time : 0;
  reuse(&state.message, source.row ? std::string_view(source.row->message) : std::string_view());
  addEarlier(source, &state);
  ++_sourceCount;
  return state.message.size();
}

// Another registration may have taken attributes away.
void SnapshotMaker::addEarlier(const Source& source, Snapshot::SourceState* state) const {
  state->earlier.clear();
  const std::vector<NamedNumber>* const earlier = _earlier.find(source.handle);
  if (earlier == nullptr) return;
  for (const NamedNumber& each : *earlier)
    if (source.group->attributes.find(each.name) != source.group->attributes.end())
      state->earlier.push_back(each);
}

// What is left of the snapshot whose memory this is. Returns whether all of it is removed.
bool SnapshotMaker::removeRest() noexcept {
  for (std::size_t count = 0; count < mostSources; ++count) {
    if (_snapshot->sources.size() == _sourceCount) return true;
    _snapshot->sources.pop_back();
  }
  return false;
}

}  // namespace dch
