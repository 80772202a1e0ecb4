// The rows on their way to the stream, and a stream that the fuzzer decides on: it takes rows,
// loses, doubles, delays and reorders them and its answers, has other rows by their IDs, refuses,
// and goes away. The window is held to a model that looks at every row each time; and when the
// stream is as it should be at last, it comes to have them all.
#include "dch/link/row_window.h"

#include <algorithm>
#include <map>
#include <set>
#include <vector>

#include "fuzz/support/input.h"
#include "fuzz/support/require.h"

namespace {

using fuzz::require;
using std::chrono::milliseconds;
using TimePoint = dch::RowWindow::TimePoint;

enum class Kind { taken, duplicate, refused };

// Has rows by their numbers, and knows by an ID whether it has one: this row or somebody else's.
class Stream {
 public:
  static constexpr std::int64_t somebodyElse = 0;

  Kind take(const dch::OutgoingRow& row) {
    if (!row.id.empty() && !_owners.emplace(row.id, row.number).second) return Kind::duplicate;
    _rows.insert(row.number);
    return Kind::taken;
  }

  void takeFromSomebodyElse(const std::string& id) { _owners.emplace(id, somebodyElse); }

  bool has(std::int64_t number) const { return _rows.contains(number); }
  bool isOfSomebodyElse(const std::string& id) const {
    const auto owner = _owners.find(id);
    return owner != _owners.end() && owner->second == somebodyElse;
  }

 private:
  std::set<std::int64_t> _rows;
  std::map<std::string, std::int64_t> _owners;
};

struct Sent {
  dch::OutgoingRow row;
  unsigned connection = 0;
};

struct Answer {
  Kind kind = Kind::taken;
  std::int64_t number = 0;
};

// A row that is not done.
struct Waiting {
  dch::OutgoingRow row;
  bool isNew = false;
  std::size_t bytes = 0;
  unsigned timesSent = 0;
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

  void deliver(const Answer& answer);
  void deliverDuplicate(std::int64_t number, Waiting* waiting);
  const dch::OutgoingRow* takeNext();
  Waiting* findSent(std::int64_t number);

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
  Stream _stream;
  unsigned _connection = 0;
  std::vector<Sent> _sent;       // to the stream
  std::vector<Answer> _answers;  // to the window, on this connection
  std::map<std::int64_t, Waiting> _waiting;
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
  const bool isNew = (choice & 0x01) != 0, hasId = (choice & 0x02) != 0;
  const bool wasSentEarlier = (choice & 0x04) != 0, isIdTaken = (choice & 0x08) != 0;
  const std::int64_t number = _knownUpTo + 1 + (choice >> 6);
  const std::string text = std::to_string(number);
  dch::OutgoingRow row{number, "S" + text, hasId ? "I" + text : "", "H" + text,
                       text + std::string(_input.takeByte(), 'M')};
  if (hasId && isIdTaken) _stream.takeFromSomebodyElse(row.id);
  if (!isNew && wasSentEarlier) _stream.take(row);
  const std::size_t bytes =
      row.subject.size() + row.id.size() + row.header.size() + row.message.size();
  _waiting.emplace(number, Waiting{row, isNew, bytes});
  _owed.insert(number);
  _window.add(std::move(row), isNew);
  _knownUpTo = number;
}

void Run::settle() {
  const std::int64_t upTo = _knownUpTo - 4 + _input.takeByte() % 8;
  _window.settle(upTo);
  _knownUpTo = std::max(_knownUpTo, upTo);
}

// What the window gives is what the model has next.
const dch::OutgoingRow* Run::takeNext() {
  const dch::OutgoingRow* const row = _window.takeNext(_now);
  const auto next = std::find_if(_waiting.begin(), _waiting.end(),
                                 [&](const auto& each) { return each.second.due <= _now; });
  require((row == nullptr) == (next == _waiting.end()), "a row when one is due");
  if (row == nullptr) return nullptr;
  Waiting& waiting = next->second;
  require(row->number == next->first, "the lowest number first");
  require(row->subject == waiting.row.subject && row->id == waiting.row.id &&
              row->header == waiting.row.header && row->message == waiting.row.message,
          "a row as it was added");
  ++waiting.timesSent;
  waiting.due = _now + _limits.patience;
  return row;
}

void Run::send() {
  const dch::OutgoingRow* const row = takeNext();
  if (row == nullptr) return;
  const unsigned fate = _input.takeByte() % 8;
  if (fate == 0) {
    const std::int64_t number = row->number;
    _window.giveUp(number);
    _waiting.erase(number);
    _owed.erase(number);
    return;
  }
  const int copies = fate == 1 ? 0 : fate == 2 ? 2 : 1;
  for (int copy = 0; copy < copies; ++copy) _sent.push_back({*row, _connection});
}

void Run::arrive() {
  if (_sent.empty()) return;
  const Sent sent = pick(&_sent);
  const unsigned fate = _input.takeByte() % 8;
  const Kind kind = fate == 0 ? Kind::refused : _stream.take(sent.row);
  const bool isAnswerLost = fate == 1 || sent.connection != _connection;
  if (!isAnswerLost) _answers.push_back({kind, sent.row.number});
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
  if (findSent(number) == nullptr) deliver({kind, number});
}

void Run::disconnect() {
  _window.disconnected();
  for (auto& [number, waiting] : _waiting) waiting.due = TimePoint::min();
  ++_connection;
  _answers.clear();
}

Waiting* Run::findSent(std::int64_t number) {
  const auto place = _waiting.find(number);
  return place != _waiting.end() && place->second.timesSent > 0 ? &place->second : nullptr;
}

void Run::deliver(const Answer& answer) {
  Waiting* const waiting = findSent(answer.number);
  switch (answer.kind) {
    case Kind::taken:
      require(_window.taken(answer.number) == (waiting != nullptr), "an answer counts once");
      if (waiting == nullptr) return;
      require(_stream.has(answer.number), "what was taken is there");
      _waiting.erase(answer.number);
      return;
    case Kind::duplicate:
      return deliverDuplicate(answer.number, waiting);
    case Kind::refused:
      _window.refused(answer.number, _now);
      if (waiting != nullptr) waiting->due = _now + _limits.pause;
  }
}

void Run::deliverDuplicate(std::int64_t number, Waiting* waiting) {
  const bool isBelieved = _window.duplicate(number);
  if (waiting == nullptr || waiting->row.id.empty())
    return require(!isBelieved, "no duplicate without an ID");
  const bool canBeItself = !waiting->isNew || waiting->timesSent > 1;
  require(isBelieved == canBeItself, "a duplicate of what was sent before");
  if (!isBelieved) {
    waiting->row.id.clear();
    waiting->due = TimePoint::min();
    return;
  }
  if (!_stream.has(number)) {
    require(_stream.isOfSomebodyElse(waiting->row.id), "what is a duplicate is there");
    _owed.erase(number);  // the window cannot know
  }
  _waiting.erase(number);
}

void Run::check() {
  require(_window.waiting() == _waiting.size() && _window.empty() == _waiting.empty(),
          "so many wait");
  std::size_t bytes = 0;
  TimePoint due = TimePoint::max();
  for (const auto& [number, each] : _waiting) {
    bytes += each.bytes;
    due = std::min(due, each.due);
  }
  require(_window.hasRoom() ==
              (_waiting.empty() || (_waiting.size() < _limits.rows && bytes < _limits.bytes)),
          "room within the limits");
  require(due <= _now ? _window.nextDue() <= _now : _window.nextDue() == due, "when one is due");
  const std::int64_t published = _window.published();
  require(published == (_waiting.empty() ? _knownUpTo : _waiting.begin()->first - 1),
          "published up to what waits");
  require(published >= _published, "published never becomes less");
  for (auto each = _owed.upper_bound(_published); each != _owed.end() && *each <= published; ++each)
    require(_stream.has(*each), "what is published is there");
  _published = published;
}

void Run::beQuiet() {
  // Each is sent once more, and once without its ID.
  std::size_t sendings = 2 * _waiting.size();
  while (!_window.empty()) {
    require(_window.nextDue() != TimePoint::max(), "all that wait are sent");
    _now = std::max(_now, _window.nextDue());
    const dch::OutgoingRow* const row = takeNext();
    require(row != nullptr && sendings-- > 0, "it ends");
    deliver({_stream.take(*row), row->number});
    check();
  }
  require(_published == _knownUpTo, "all is published");
  for (const std::int64_t number : _owed) require(_stream.has(number), "the stream has all");
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
