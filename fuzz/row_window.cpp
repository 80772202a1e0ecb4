// The rows on their way to the stream, and a stream that the fuzzer decides on: it takes rows,
// loses, doubles, delays and reorders them and its answers, has some of them already, refuses, and
// goes away. The window is held to a model that looks at every row each time; and when the stream
// is as it should be at last, it comes to have them all.
#include "dch/link/row_window.h"

#include <algorithm>
#include <iterator>
#include <map>
#include <set>
#include <vector>

#include "fuzz/support/input.h"
#include "fuzz/support/require.h"

namespace {

using fuzz::require;
using std::chrono::milliseconds;
using TimePoint = dch::RowWindow::TimePoint;

// Of the stream: "taken" is what it says of a row that it had already, too.
enum class Kind { taken, refused, tooLarge };

struct Sent {
  std::int64_t number = 0;
  unsigned connection = 0;
};

struct Answer {
  Kind kind = Kind::taken;
  std::int64_t number = 0;  // 0: it does not say
};

// A row that is not done.
struct Waiting {
  dch::OutgoingRow row;
  std::size_t bytes = 0;
  bool wasSent = false;
  TimePoint due = TimePoint::min();
};

class Run {
 public:
  explicit Run(const fuzz::Input& input)
      : _input(input),
        _limits{_input.takeByte() % 16, _input.takeByte()},
        _window(_published, _limits) {}

  bool atEnd() const { return _input.atEnd(); }
  void step();
  void check();
  // From here on nothing is lost, late or refused.
  void beQuiet();

 private:
  void add();
  void settle();
  void send();
  void arrive();
  void answer();
  void answerOutOfPlace();
  void disconnect();

  using Rows = std::map<std::int64_t, Waiting>;
  void deliver(const Answer& answer);
  Rows::iterator modelsNext();
  TimePoint modelsNextDue() const;
  const dch::OutgoingRow* takeNext();
  bool wasSent(std::int64_t number) const;

  template <class Each>
  Each pick(std::vector<Each>* all) {
    const auto place = all->begin() + static_cast<std::ptrdiff_t>(_input.takeByte() % all->size());
    Each each = std::move(*place);
    all->erase(place);
    return each;
  }

  fuzz::Input _input;
  dch::RowWindow::Limits _limits;
  std::int64_t _published = 100;
  std::int64_t _knownUpTo = _published;
  dch::RowWindow _window;
  TimePoint _now{milliseconds(10)};
  std::set<std::int64_t> _stream;  // what it has
  unsigned _connection = 0;
  std::vector<Sent> _sent;       // to the stream
  std::vector<Answer> _answers;  // to the window, on this connection
  Rows _waiting;
  bool _isRefused = false;
  TimePoint _lastTry;            // or the first refusal, while it is
  std::set<std::int64_t> _owed;  // which the stream has to have in the end
};

void Run::step() {
  switch (_input.takeByte() % 8) {
    case 0:
      return add();
    case 1:
      return settle();
    case 2:
      return send();
    case 3:
      return arrive();
    case 4:
      return answer();
    case 5:
      return answerOutOfPlace();
    case 6:
      return disconnect();
    default:
      _now += milliseconds(20 * _input.takeByte());
  }
}

void Run::add() {
  if (!_window.hasRoom()) return;
  const unsigned choice = _input.takeByte();
  const bool wasSentEarlier = (choice & 0x01) != 0;
  const std::int64_t number = _knownUpTo + 1 + (choice >> 6);
  const std::string text = std::to_string(number);
  dch::OutgoingRow row{number, "S" + text, "I" + text, "H" + text,
                       text + std::string(_input.takeByte(), 'M')};
  if (wasSentEarlier) _stream.insert(number);
  const std::size_t bytes =
      row.subject.size() + row.id.size() + row.header.size() + row.message.size();
  _waiting.emplace(number, Waiting{row, bytes});
  _owed.insert(number);
  _window.add(std::move(row));
  _knownUpTo = number;
}

void Run::settle() {
  const std::int64_t upTo = _knownUpTo - 4 + _input.takeByte() % 8;
  _window.settle(upTo);
  _knownUpTo = std::max(_knownUpTo, upTo);
}

// The row that is to be sent now.
Run::Rows::iterator Run::modelsNext() {
  if (_isRefused) return _now - _lastTry >= _limits.pause ? _waiting.begin() : _waiting.end();
  return std::find_if(_waiting.begin(), _waiting.end(),
                      [&](const auto& each) { return each.second.due <= _now; });
}

TimePoint Run::modelsNextDue() const {
  if (_waiting.empty()) return TimePoint::max();
  if (_isRefused) return _lastTry + _limits.pause;
  TimePoint due = TimePoint::max();
  for (const auto& [number, each] : _waiting) due = std::min(due, each.due);
  return due;
}

// What the window gives is what the model has next.
const dch::OutgoingRow* Run::takeNext() {
  const dch::OutgoingRow* const row = _window.takeNext(_now);
  const auto next = modelsNext();
  require((row == nullptr) == (next == _waiting.end()), "a row when one is due");
  if (row == nullptr) return nullptr;
  Waiting& waiting = next->second;
  require(row->number == next->first, "the lowest number first");
  require(row->subject == waiting.row.subject && row->id == waiting.row.id &&
              row->header == waiting.row.header && row->message == waiting.row.message,
          "a row as it was added");
  waiting.wasSent = true;
  waiting.due = _now + _limits.patience;
  _lastTry = _now;
  return row;
}

void Run::send() {
  const dch::OutgoingRow* const row = takeNext();
  if (row == nullptr) return;
  const std::int64_t number = row->number;
  const unsigned fate = _input.takeByte() % 8;
  if (fate == 0) return deliver({Kind::tooLarge, number});
  const int copies = fate == 1 ? 0 : fate == 2 ? 2 : 1;
  for (int copy = 0; copy < copies; ++copy) _sent.push_back({number, _connection});
}

void Run::arrive() {
  if (_sent.empty()) return;
  const Sent sent = pick(&_sent);
  constexpr Kind kinds[] = {Kind::refused, Kind::taken, Kind::taken, Kind::tooLarge, Kind::refused};
  const unsigned fate = _input.takeByte() % std::size(kinds);
  if (kinds[fate] == Kind::taken) _stream.insert(sent.number);
  const bool isLost = fate == 1 || sent.connection != _connection;
  const bool isNamed = fate != 4;
  if (!isLost) _answers.push_back({kinds[fate], isNamed ? sent.number : 0});
}

void Run::answer() {
  if (_answers.empty()) return;
  const Answer answer = pick(&_answers);
  const bool comesAgain = _input.takeByte() % 4 == 0;
  if (comesAgain) _answers.push_back(answer);
  deliver(answer);
}

// Of a row that is done, unknown or has not been sent.
void Run::answerOutOfPlace() {
  const std::int64_t number = _published - 4 + _input.takeByte() % 32;
  const Kind kind = static_cast<Kind>(_input.takeByte() % 3);
  if (!wasSent(number)) deliver({kind, number});
}

void Run::disconnect() {
  _window.disconnected();
  for (auto& [number, waiting] : _waiting) waiting.due = TimePoint::min();
  _isRefused = false;
  ++_connection;
  _answers.clear();
}

bool Run::wasSent(std::int64_t number) const {
  const auto place = _waiting.find(number);
  return place != _waiting.end() && place->second.wasSent;
}

void Run::deliver(const Answer& answer) {
  const auto [kind, number] = answer;
  const auto place = _waiting.find(number);
  const bool isWaiting = place != _waiting.end();
  switch (kind) {
    case Kind::taken: {
      const bool counts = wasSent(number);
      require(_window.taken(number) == counts, "an answer counts once");
      if (!counts) return;
      _waiting.erase(place);
      _isRefused = false;
      return;
    }
    case Kind::tooLarge:
      require(_window.giveUp(number) == isWaiting, "a row is given up once");
      if (!isWaiting) return;
      _waiting.erase(place);
      _owed.erase(number);
      return;
    case Kind::refused:
      _window.refused(number, _now);
      if (isWaiting) place->second.due = TimePoint::min();
      if (!_isRefused) _lastTry = _now;
      _isRefused = true;
  }
}

void Run::check() {
  require(_window.waiting() == _waiting.size() && _window.empty() == _waiting.empty(),
          "so many wait");
  std::size_t bytes = 0;
  for (const auto& [number, each] : _waiting) bytes += each.bytes;
  require(_window.hasRoom() ==
              (_waiting.empty() || (_waiting.size() < _limits.rows && bytes < _limits.bytes)),
          "room within the limits");
  const TimePoint due = modelsNextDue();
  require(due <= _now ? _window.nextDue() <= _now : _window.nextDue() == due, "when one is due");
  const std::int64_t published = _window.published();
  require(published == (_waiting.empty() ? _knownUpTo : _waiting.begin()->first - 1),
          "published up to what waits");
  require(published >= _published, "published never becomes less");
  for (auto each = _owed.upper_bound(_published); each != _owed.end() && *each <= published; ++each)
    require(_stream.contains(*each), "what is published is there");
  _published = published;
}

void Run::beQuiet() {
  std::size_t sendings = _waiting.size();
  while (!_window.empty()) {
    require(_window.nextDue() != TimePoint::max(), "all that wait are sent");
    _now = std::max(_now, _window.nextDue());
    const dch::OutgoingRow* const row = takeNext();
    require(row != nullptr && sendings-- > 0, "it ends");
    _stream.insert(row->number);
    deliver({Kind::taken, row->number});
    check();
  }
  require(_published == _knownUpTo, "all is published");
  for (const std::int64_t number : _owed) require(_stream.contains(number), "the stream has all");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t count) {
  Run run({bytes, count});
  run.check();
  while (!run.atEnd()) {
    run.step();
    run.check();
  }
  run.beQuiet();
  return 0;
}
