#include "dch/testkit/numbered_sender.h"

#include <chrono>
#include <cstring>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "dch/testkit/messages.h"
#include "zordchcl/messages.h"
#include "zordchcl/status.h"

namespace dch::testkit {

namespace {

constexpr char groupName[] = "rows";
constexpr std::size_t mostSources = 12;
constexpr ZORA_Long idsOfASender = 1'000'000;
// Much longer than a server is away or takes for an answer.
constexpr std::chrono::seconds longestWait{50};
constexpr int lookMilliseconds = 20;

// The version is the size of an attribute that no row has, so that the server can be asked for it.
std::string registrationOf(const std::string& application, int version) {
  return "appl:" + application + ",KEY;group:" + groupName + ";attr:number,G,4;attr:version,T," +
         std::to_string(version) + ";";
}

Value numberValue(std::uint32_t number) {
  std::string bytes(sizeof number, '\0');
  std::memcpy(bytes.data(), &number, sizeof number);
  return {"number", 'G', bytes};
}

}  // namespace

NumberedSender::NumberedSender(int number, Carrier carrier, int port, const Lives& lives,
                               std::uint32_t seed)
    : _number(number), _carrier(carrier), _port(port), _lives(lives), _random(seed) {
  _book.application = "SENDER" + std::to_string(number);
  _thread = std::thread([this] { run(); });
}

void NumberedSender::stop() {
  _isStopping = true;
  if (_thread.joinable()) _thread.join();
}

SenderBook NumberedSender::book() const {
  const std::lock_guard lock(_mutex);
  return _book;
}

std::string NumberedSender::failure() const {
  const std::lock_guard lock(_mutex);
  return _failure;
}

void NumberedSender::run() {
  try {
    registerNext();
    goOnline(0);
    while (!_isStopping) work();
  } catch (const std::exception& error) {
    expect(false, error.what(), "");
  }
}

void NumberedSender::work() {
  if (!_book.isRegistered) return workUnregistered();
  const unsigned kind = below(1'000);
  const std::optional<std::size_t> source = anyOnline();
  if (std::exchange(_isFirstOfLife, false) && below(2) == 0)
    goOnline(below(static_cast<unsigned>(_book.sources.size())));
  else if (!source || kind < 3)
    goOnline(below(static_cast<unsigned>(std::min(_book.sources.size() + 1, mostSources))));
  else if (kind < 5)
    registerNext();
  else if (kind < 7)
    goOffline(*source);
  else if (kind < 12)
    defer();
  else if (kind < 14)
    act();
  else if (kind < 16 && _rows > 0)  // else there may be no view of its rows
    unregister();
  else
    sendRow(*source);
}

// For a while, in which the server may die.
void NumberedSender::workUnregistered() {
  if (below(20) == 0) return registerNext();
  const auto any = below(static_cast<unsigned>(_book.sources.size()));
  std::string answer = ask(dataMessage(_book.sources[any].handle, {numberValue(0)}));
  expect(statusOf(answer) == DCH_STATUS_UNKNOWN_HANDLE, "a row without a registration", answer);
  answer = ask(unregisterMessage(_book.application));
  expect(statusOf(answer) == DCH_STATUS_UNKNOWN_APPLICATION, "no registration", answer);
}

void NumberedSender::registerNext() {
  const int version = _book.version + 1;
  note([&](SenderBook& book) { book.isChanging = true; });
  const std::string answer =
      ask(registerMessage(registrationOf(_book.application, version), _book.application, "KEY"));
  expect(statusOf(answer) == DCH_STATUS_OK, "a registration", answer);
  note([&](SenderBook& book) {
    book.version = version;
    book.isRegistered = true;
    book.isChanging = false;
  });
}

void NumberedSender::unregister() {
  int asked = 0;
  note([&](SenderBook& book) { book.isChanging = true; });
  const std::string answer =
      ask(unregisterMessage(_book.application), [&](SenderBook&) { ++asked; });
  const auto status = statusOf(answer);
  expect(status == DCH_STATUS_OK || (asked > 1 && status == DCH_STATUS_UNKNOWN_APPLICATION),
         "the end of the registration", answer);
  note([&](SenderBook& book) {
    book.isRegistered = book.isChanging = false;
    ++book.unregistrations;
    for (SourceBook& source : book.sources) source.isOnline = false;
  });
}

void NumberedSender::goOnline(std::size_t index) {
  if (index == _book.sources.size())
    note([&](SenderBook& book) { book.sources.emplace_back().name = "s" + std::to_string(index); });
  const SourceBook& known = _book.sources[index];
  const std::string answer = ask(onlineMessage(_book.application, groupName, known.name));
  const auto online = onlineAnswerOf(answer);
  expect(online && online->status == DCH_STATUS_OK && online->handle > 0 &&
             (known.handle == 0 || known.handle == online->handle),
         known.name + " on line", answer);
  note([&](SenderBook& book) {
    book.sources[index].handle = online ? online->handle : 0;
    book.sources[index].isOnline = true;
  });
}

void NumberedSender::goOffline(std::size_t index) {
  // One that is asked again is off line already.
  int asked = 0;
  const std::string answer =
      ask(offlineMessage(_book.sources[index].handle), [&](SenderBook&) { ++asked; });
  const auto status = statusOf(answer);
  expect(status == DCH_STATUS_OK || (asked > 1 && status == DCH_STATUS_UNKNOWN_HANDLE),
         _book.sources[index].name + " off line", answer);
  note([&](SenderBook& book) { book.sources[index].isOnline = false; });
}

void NumberedSender::sendRow(std::size_t index) {
  const std::uint32_t number = _book.sources[index].sent + 1;
  const std::string answer =
      ask(dataMessage(_book.sources[index].handle, {numberValue(number)}), [&](SenderBook& book) {
        SourceBook& source = book.sources[index];
        if (source.sent == number) ++source.sends.try_emplace(number, 1).first->second;
        source.sent = number;
      });
  expect(statusOf(answer) == DCH_STATUS_OK, "row " + std::to_string(number), answer);
  note([&](SenderBook& book) { book.sources[index].acknowledged = number; });
  ++_rows;
  _lastLife = _connectedIn;
}

void NumberedSender::defer() {
  connect(_lives);
  const auto id = _number * idsOfASender + static_cast<ZORA_Long>(_book.deferred.size()) + 1;
  note([&](SenderBook& book) { book.deferred.push_back(id); });
  send(deferralMessage(id));
}

// One that the death has cut off has no result of its program, and that of the last one stays.
void NumberedSender::act() {
  if (!_book.actions.empty() && _book.actions.back().result) {
    const ActionBook& last = _book.actions.back();
    const std::string answer = ask(actionResultsMessage(last.id));
    expect(statusOf(answer) == last.result, "the result of an action before", answer);
  }
  connect(_lives);
  const auto id = _number * idsOfASender + static_cast<ZORA_Long>(_book.actions.size()) + 1;
  const ZORA_Long result = id % 2;
  note([&](SenderBook& book) { book.actions.push_back({id, std::nullopt}); });
  send(actionMessage(result == 0 ? "succeed" : "fail", id));
  const std::string answer = ask(actionResultsMessage(id));
  const auto status = statusOf(answer);
  if (status == DCH_STATUS_UNKNOWN_ACTION || status == DCH_STATUS_NOT_STORED) return;
  expect(status == result, "the result of an action", answer);
  note([&](SenderBook& book) { book.actions.back().result = result; });
}

std::optional<std::size_t> NumberedSender::anyOnline() {
  std::vector<std::size_t> online;
  for (std::size_t index = 0; index < _book.sources.size(); ++index)
    if (_book.sources[index].isOnline) online.push_back(index);
  if (online.empty()) return std::nullopt;
  return online[below(static_cast<unsigned>(online.size()))];
}

void NumberedSender::connect(int life) {
  if (_connectedIn == life) return;
  _connectedIn = life;
  _isFirstOfLife = true;
  if (_carrier == Carrier::datagrams) {
    _formerDatagrams = std::exchange(_datagrams, std::make_unique<UdpClient>(_port));
    return;
  }
  _stream = nullptr;
  try {
    _stream = std::make_unique<TcpClient>(_port);
  } catch (const std::system_error&) {
    // It has died already.
  }
}

void NumberedSender::send(const std::string& message) {
  if (_datagrams != nullptr) _datagrams->send(message);
  if (_stream != nullptr) _stream->send(message);
}

std::string NumberedSender::ask(const std::string& message, const Noted& beforeEach) {
  for (;;) {
    const int life = _lives;
    connect(life);
    if (beforeEach) note(beforeEach);
    if (const auto answer = exchange(message, life)) return *answer;
  }
}

// Nothing when the life ended without an answer.
std::optional<std::string> NumberedSender::exchange(const std::string& message, int life) {
  send(message);
  const auto end = std::chrono::steady_clock::now() + longestWait;
  while (std::chrono::steady_clock::now() < end) {
    std::optional<std::string> answer;
    if (_datagrams != nullptr) answer = _datagrams->receive(lookMilliseconds);
    if (_stream != nullptr) answer = _stream->receive(lookMilliseconds);
    if (answer && !answer->empty()) return answer;
    if (_stream != nullptr && answer) _stream = nullptr;  // it has ended
    if (_carrier == Carrier::stream && _stream == nullptr)
      std::this_thread::sleep_for(std::chrono::milliseconds(lookMilliseconds));
    if (_lives != life) return std::nullopt;
  }
  throw std::runtime_error("no answer came, and the server did not die");
}

void NumberedSender::note(const Noted& change) {
  const std::lock_guard lock(_mutex);
  change(_book);
}

void NumberedSender::expect(bool isRight, const std::string& what, const std::string& answer) {
  if (isRight) return;
  const std::lock_guard lock(_mutex);
  const auto status = statusOf(answer);
  if (_failure.empty())
    _failure = _book.application + ", life " + std::to_string(_connectedIn) + ": " + what +
               (status ? ": status " + std::to_string(*status) : "");
  _isStopping = true;
}

std::string NumberedSender::compareWithServer() {
  const UdpClient client(_port);
  std::string wrong;
  const std::string attributes =
      textOf(client.ask(catalogueMessage(DCH_REQUEST_ATTRIBUTES, _book.application.c_str())))
          .value_or("");
  const std::string version = "rows,version,T," + std::to_string(_book.version) + ",";
  if (_book.isRegistered && attributes.find(version) == std::string::npos)
    wrong += "it is not registered in version " + std::to_string(_book.version) + "\n";
  if (!_book.isRegistered && !attributes.empty()) wrong += "it is registered\n";
  if (!_book.actions.empty() && _book.actions.back().result &&
      statusOf(client.ask(actionResultsMessage(_book.actions.back().id))) !=
          _book.actions.back().result)
    wrong += "its last action has another result\n";
  for (const SourceBook& source : _book.sources) {
    // A row that is refused on line and off, each in its way.
    const auto status = statusOf(client.ask(dataMessage(source.handle, {{"none", 'G', "1234"}})));
    if (status != (source.isOnline ? DCH_STATUS_UNKNOWN_ATTRIBUTE : DCH_STATUS_UNKNOWN_HANDLE))
      wrong += source.name + (source.isOnline ? " is not on line\n" : " is not off line\n");
  }
  if (!_book.isRegistered)
    client.ask(registerMessage(registrationOf(_book.application, _book.version), _book.application,
                               "KEY"));
  for (const SourceBook& source : _book.sources) {
    const auto online =
        onlineAnswerOf(client.ask(onlineMessage(_book.application, groupName, source.name)));
    if (!online || online->handle != source.handle) wrong += source.name + " has another handle\n";
  }
  return wrong.empty() ? "" : _book.application + ":\n" + wrong;
}

}  // namespace dch::testkit
