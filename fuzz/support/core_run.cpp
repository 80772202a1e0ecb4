#include "fuzz/support/core_run.h"

#include <arpa/inet.h>

#include <algorithm>
#include <cstring>
#include <memory>

#include "dch/testkit/messages.h"
#include "fuzz/support/field_model.h"
#include "fuzz/support/require.h"
#include "zordchcl/messages.h"
#include "zordchcl/status.h"

namespace fuzz {

namespace {

bool isPrintable(char character) {
  return character >= ' ' && character <= '~';
}

std::vector<std::string> textsOf(const std::list<dch::Deferral>& deferrals) {
  std::vector<std::string> texts;
  for (const dch::Deferral& each : deferrals) texts.push_back(each.text());
  return texts;
}

std::vector<std::string> textsOf(const std::vector<const dch::Application*>& applications) {
  std::vector<std::string> texts;
  for (const dch::Application* each : applications) texts.push_back(each->registration.text);
  return texts;
}

bool isSame(const dch::Source& one, const dch::Source& other) {
  return one.name == other.name && one.group->topic == other.group->topic &&
         one.isOnline == other.isOnline && one.row.has_value() == other.row.has_value() &&
         (!one.row || one.row->message == other.row->message);
}

}  // namespace

sockaddr_in clientAddress(unsigned number) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK + number);
  address.sin_port = htons(static_cast<std::uint16_t>(4711 + number));
  return address;
}

void makeLengthRight(std::string* message) {
  const std::uint32_t word = htonl(static_cast<std::uint32_t>(message->size()));
  std::memcpy(message->data(), &word, std::min(message->size(), sizeof word));
}

void CoreRun::receive(const std::string& sent, const dch::Origin& origin) {
  // Exactly as long as the message, so that what is read behind it is found.
  const std::unique_ptr<char[]> bytes(new char[sent.size()]);
  sent.copy(bytes.get(), sent.size());
  const std::string_view message(bytes.get(), sent.size());
  require(!isBusy(origin), "a connection has one request at a time");
  _witness.outcome = {};
  if (!origin.isDatagram()) _witness.underWay.insert(origin.connection);
  _life->core.receive({message, origin, 1});
  _life->core.finishPublishing();
  require(message == sent, "a message stays as it was received");
  // What waits for a slow store is answered later.
  if (!isSlow() || !_witness.outcome.answers.empty())
    checkOutcome(message, origin, _witness.outcome);
  checkRow(message);
  noteWaiter(message, origin);
  noteKept();
}

void CoreRun::receiveBroken(const dch::Origin& origin) {
  _witness.outcome = {};
  _life->core.receiveBroken(origin);
  checkBroken(origin, _witness.outcome);
}

void CoreRun::endConnection(const dch::Origin& origin) {
  _witness.outcome = {};
  _life->core.connectionClosed(origin);
  _witness.underWay.erase(origin.connection);
  for (auto& [id, waiters] : _life->waiters) std::erase(waiters, origin);
  require(_witness.outcome.isEmpty(), "nobody is told that a connection is closed");
}

void CoreRun::goOn() {
  if (std::exchange(_witness.isTimerStarted, false)) passTime();
  endProgram();
}

void CoreRun::setSlow(bool isSlow) {
  while (_store.waiting() > 0) conclude(true);
  _store.setSlow(isSlow);
}

void CoreRun::conclude(bool isKept) {
  if (_store.waiting() == 0) return;
  const dch::Change change = _store.first().change;
  const dch::Origin origin = _store.first().origin;
  const dch::RequestType* const request = _store.first().request;
  _witness.outcome = {};
  _store.concludeFirst(isKept);
  _life->core.finishPublishing();
  if (const auto* const ended = std::get_if<dch::ActionEnded>(&change))
    checkEndOfAction(ended->id, isKept ? ended->status : ZORA_Long{DCH_STATUS_NOT_STORED});
  if (request != nullptr && request->isAnsweredByDatagram)
    require(!_witness.outcome.answers.empty() &&
                _witness.outcome.answers.front().receiver == origin && wasToldOk() == isKept,
            "a change is acknowledged when it is kept");
  if (const auto* const row = std::get_if<dch::Row>(&change); row != nullptr && isKept)
    _acknowledgedRows.insert(row->message);
  if (const auto* const started = std::get_if<dch::ActionStarted>(&change); started && !isKept)
    _life->waiters.erase(started->id);
  noteKept();
}

void CoreRun::restart(std::size_t kept) {
  if (_store.waiting() == 0) checkKnown(false);
  require(_keptRows == _acknowledgedRows, "rows are kept once, and acknowledged when they are");
  _store.die(kept);
  noteKept();
  _acknowledgedRows = _keptRows;
  _life.reset();
  _witness = {};
  _life.emplace(_store, _witness);
  require(_witness.outcome.isEmpty(), "nobody is told what was known before");
  checkKnown(true);
  checkResults();
}

void CoreRun::checkReport() const {
  const std::string report = _life->core.report();
  require(std::all_of(report.begin(), report.end(),
                      [](char each) { return each == '\n' || isPrintable(each); }),
          "a report that is fit for a terminal");
}

// A new subscriber of status is told more of what is on line.
void CoreRun::passTime() {
  _witness.outcome = {};
  _life->core.timeIsUp();
  _life->core.finishPublishing();
  require(_witness.outcome.answers.empty(), "time answers nobody");
  for (const std::string& pushed : _witness.outcome.pushed)
    require(isStatusEvent(pushed), "events of what is on line");
}

void CoreRun::endProgram() {
  const std::optional<SeemingPrograms::Ended> ended = _life->programs.takeEnded();
  if (!ended) return;
  _witness.outcome = {};
  _life->core.programEnded(ended->id, ended->result, 1);
  if (!isSlow()) checkEndOfAction(ended->id, ended->result);
  noteKept();
}

// A row that was acknowledged is the newest one of its source.
void CoreRun::checkRow(std::string_view message) {
  FieldModel fields(message);
  if (fields.nextShort(DCH_requestType) != DCH_REQUEST_DATA || _witness.outcome.answers.empty())
    return;
  FieldModel answer(_witness.outcome.answers.front().bytes);
  if (answer.nextLong(DCH_status) != DCH_STATUS_OK) return;
  const dch::Source* const source =
      _life->core.registry().findOnline(fields.nextLong(DCH_handle).value());
  require(source != nullptr && source->row && source->row->message == message,
          "a row that is acknowledged is kept");
  _acknowledgedRows.emplace(message);
}

// One that is not answered waits, once even when it asks again.
void CoreRun::noteWaiter(std::string_view message, const dch::Origin& origin) {
  FieldModel fields(message);
  if (fields.nextShort(DCH_requestType) != DCH_REQUEST_ACTION_RESULTS ||
      !_witness.outcome.answers.empty())
    return;
  std::vector<dch::Origin>& waiters = _life->waiters[fields.nextLong(DCH_actionID).value()];
  if (std::find(waiters.begin(), waiters.end(), origin) == waiters.end()) waiters.push_back(origin);
}

void CoreRun::checkEndOfAction(ZORA_Long id, ZORA_Long result) {
  checkResult(_life->waiters[id], result, _witness.outcome);
  _life->waiters.erase(id);
}

bool CoreRun::wasToldOk() const {
  FieldModel answer(_witness.outcome.answers.front().bytes);
  return answer.nextLong(DCH_status) == DCH_STATUS_OK;
}

// Handles stay for good, whatever comes in between.
void CoreRun::noteKept() {
  for (; _noted < _store.kept().size(); ++_noted) {
    const dch::Change& change = _store.kept()[_noted];
    if (const auto* const row = std::get_if<dch::Row>(&change)) _keptRows.insert(row->message);
    if (const auto* const online = std::get_if<dch::WentOnline>(&change)) {
      const std::string names =
          dch::joinNames(dch::joinNames(online->application, online->group), online->source);
      require(_namesOfHandles.try_emplace(online->handle, names).first->second == names,
              "a handle means one source");
      require(_handlesOfNames.try_emplace(names, online->handle).first->second == online->handle,
              "a source has one handle");
    }
    _known.apply(change);
  }
}

// The core knows what follows from the changes that were kept. One that is not new may also have
// given a handle to names whose change was not kept: nobody was told of it.
void CoreRun::checkKnown(bool isNew) const {
  const dch::Registry& registry = _life->core.registry();
  const dch::Registry& expected = _known.registry();
  require(textsOf(registry.applications()) == textsOf(expected.applications()),
          "what is registered is known");
  require(textsOf(_life->core.deferrals().kept()) == textsOf(_known.deferrals().kept()),
          "what is deferred is known");
  // Names that nobody has would get the next handle.
  const ZORA_Long end = std::max(registry.handleFor({}), expected.handleFor({}));
  for (ZORA_Long handle = 1; handle < end; ++handle) {
    const dch::Source* const source = registry.findSource(handle);
    const dch::Source* const kept = expected.findSource(handle);
    if (kept != nullptr)
      require(source != nullptr && isSame(*source, *kept), "a source is known");
    else
      require(source == nullptr || (!isNew && !source->isOnline), "no other source is known");
  }
}

// Of actions that ended, and of those that ran when the process died.
void CoreRun::checkResults() {
  const dch::Origin asker{dch::PeerAddress(clientAddress(0))};
  for (const auto& [id, result] : _known.results()) {
    _witness.outcome = {};
    _life->core.receive({dch::testkit::actionResultsMessage(id), asker, 1});
    checkResult({asker}, result, _witness.outcome);
  }
}

void Witness::send(const dch::Origin& receiver, std::string_view message) noexcept {
  require(lengthWordIsRight(message) && isAnswer(message), "an answer is sent");
  outcome.answers.push_back({receiver, std::string(message)});
}

bool Witness::push(std::string_view message, const dch::PeerAddress&) {
  require(lengthWordIsRight(message), "what is pushed is as long as it says");
  outcome.pushed.emplace_back(message);
  return true;
}

void Witness::writeLine(dch::Priority, std::string_view line) const {
  require(std::all_of(line.begin(), line.end(), isPrintable),
          "a log line that is fit for a terminal");
}

}  // namespace fuzz
