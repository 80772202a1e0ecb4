// What a hub keeps of the rows of a site, through a stream and a network that lose, double and
// reorder, with a site whose file goes back to older states, loses its oldest rows and is cloned,
// and whose clones all answer until one is left, and a hub that dies: in the end it has each row
// that is to be had once, and rests.
#include <algorithm>
#include <deque>
#include <iterator>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <utility>
#include <vector>

#include "dch/link/incoming_rows.h"
#include "fuzz/support/input.h"
#include "fuzz/support/require.h"
#include "fuzz/support/site_model.h"

namespace {

using dch::RowHeader;
using dch::RowName;
using fuzz::require;
using Wants = dch::IncomingRows::Wants;
using fuzz::Answer;
using fuzz::Key;
using fuzz::keyOf;
using fuzz::Site;

class Run {
 public:
  explicit Run(const fuzz::Input& input) : _input(input) {
    const unsigned limits = _input.takeByte();
    _mostFetched = 1 + limits % 6;
    _mostPassedEpochs = limits < 128 ? dch::IncomingRows::mostPassedEpochs : 1 + limits % 3;
    _sites.emplace_back().start(++_runs, 0);
    startHub({});
  }

  bool atEnd() const { return _input.atEnd(); }
  void step();
  // From here on nothing is lost, late or dies.
  void beQuiet();

 private:
  struct Kept {
    dch::IncomingRows::State state;
    std::size_t rows = 0;
    std::uint64_t position = 0;
  };
  struct Reread {
    std::uint64_t next = 0;
    std::uint64_t end = 0;
  };

  void startHub(const dch::IncomingRows::State& state) {
    _hub = std::make_unique<dch::IncomingRows>(state, _mostPassedEpochs);
  }
  void write();
  void publish();
  void arrive();
  void restart();
  void goBack();
  void removeOldest();
  void cloneOrSwitch();
  void loseOfStream();
  void readFirst();
  void rereadOn();
  void fetchOn();
  void endBatch();
  void die();

  Site& answering() { return _sites[_answering]; }
  bool isEverywhere(const Key& key) const;
  void add(const RowHeader& row) { _stream.emplace(++_lastSequence, row); }
  void deliverWhatIsLate();
  void settleOnTheWay();
  void keep(const RowHeader& row, bool isKept);
  void beginReread();
  void endReread();
  void beginFetch();
  void makeAnswer();
  void takeAnswer();
  void endFetch(bool isAnswered);
  bool fetchIfQuiet();
  bool workOnce();

  fuzz::Input _input;
  std::size_t _mostFetched = 0;
  std::size_t _mostPassedEpochs = 0;
  unsigned _runs = 0;
  std::vector<Site> _sites;
  std::size_t _answering = 0;
  bool _isAlone = true;  // all others are gone, or stand aside
  std::set<Key> _written;
  std::vector<RowHeader> _onTheWay;  // to the stream
  std::map<std::uint64_t, RowHeader> _stream;
  std::uint64_t _lastSequence = 0;

  std::unique_ptr<dch::IncomingRows> _hub;
  std::vector<Key> _rows;  // that the hub has
  std::uint64_t _position = 0;
  Kept _kept;
  std::optional<Reread> _reread;
  std::optional<std::vector<RowName>> _request;
  std::optional<Answer> _answer;
  std::deque<RowHeader> _late;  // of an answer that the hub has given up
  bool _isLooking = false;      // the hub relies on what it has read of the stream
  bool _canHaveGaps = false;
  std::set<Key> _notInFile;    // that the answer was made of
  std::set<Key> _inFile;       // likewise
  bool _isAnswerOfOne = true;  // that was alone then
  std::set<Key> _neverToldOf;  // when one that was alone was asked its file did not have them
};

void Run::step() {
  constexpr void (Run::*steps[])() = {
      &Run::write,        &Run::write,     &Run::publish,   &Run::publish,      &Run::arrive,
      &Run::arrive,       &Run::restart,   &Run::goBack,    &Run::removeOldest, &Run::cloneOrSwitch,
      &Run::loseOfStream, &Run::readFirst, &Run::readFirst, &Run::rereadOn,     &Run::rereadOn,
      &Run::fetchOn,      &Run::fetchOn,   &Run::fetchOn,   &Run::endBatch,     &Run::die};
  (this->*steps[_input.takeByte() % std::size(steps)])();
}

// Numbers are left out where something else was kept.
void Run::write() {
  const unsigned choice = _input.takeByte();
  Site& site = _sites[choice % _sites.size()];
  for (unsigned count = 0; count <= (choice >> 2) % 4; ++count)
    _written.insert(site.write(choice >> 6));
}

void Run::publish() {
  const unsigned choice = _input.takeByte();
  Site& site = _sites[choice % _sites.size()];
  const bool isNoted = (choice & 0x04) != 0, isLost = (choice & 0x18) == 0;
  for (unsigned count = 0; count <= choice >> 6; ++count) {
    const auto row = site.publishNext();
    if (!row) break;
    if (!isLost) _onTheWay.push_back(*row);
    if ((choice & 0x38) == 0x38) _onTheWay.push_back(*row);
  }
  if (isNoted) site.notePublished();
}

void Run::arrive() {
  if (_onTheWay.empty()) return;
  const unsigned choice = _input.takeByte();
  const bool isInOrder = choice % 2 == 0;
  for (unsigned count = 0; count <= choice >> 5 && !_onTheWay.empty(); ++count) {
    const std::size_t place = isInOrder ? 0 : (choice >> 1) % _onTheWay.size();
    add(_onTheWay[place]);
    _onTheWay.erase(_onTheWay.begin() + static_cast<std::ptrdiff_t>(place));
  }
}

// What is on its way when a server ends arrives at once, or never.
void Run::settleOnTheWay() {
  const bool isLost = _input.takeByte() % 2 == 0;
  for (const RowHeader& each : _onTheWay)
    if (!isLost) add(each);
  _onTheWay.clear();
}

// What was published is published again when the file did not note it. A clone's would come when
// nobody can wait for it any more.
void Run::restart() {
  settleOnTheWay();
  const unsigned choice = _input.takeByte();
  Site& site = _sites[choice % _sites.size()];
  site.start(++_runs, _sites.size() == 1 ? site.notedPublished() : site.published());
  if (choice != 0xff) return;
  for (unsigned count = 0; count < 70; ++count) {  // more runs than a request has names of
    _written.insert(site.write(0));
    site.start(++_runs, site.notedPublished());
  }
}

void Run::goBack() {
  settleOnTheWay();
  const unsigned choice = _input.takeByte();
  Site& site = _sites[choice % _sites.size()];
  const std::int64_t to = std::max<std::int64_t>(site.position() - (choice >> 3), 0);
  const std::int64_t published =
      std::min(_sites.size() == 1 ? site.notedPublished() : site.published(), to);
  site.goBack(to);
  site.start(++_runs, published);
  _canHaveGaps = true;
}

// Not what was published since the hub has begun to look for what there is.
void Run::removeOldest() {
  if (_isLooking || answering().rows().empty()) return;
  const std::vector<Key>& rows = answering().rows();
  const std::int64_t number = rows[_input.takeByte() % rows.size()].second;
  for (Site& each : _sites) each.removeUpTo(number);
  _canHaveGaps = true;
}

void Run::cloneOrSwitch() {
  _canHaveGaps = true;
  const unsigned choice = _input.takeByte();
  _isAlone = choice % 4 == 0;
  if (_sites.size() == 3 || choice >= 0x80) {
    _answering = (choice >> 2) % _sites.size();
    return;
  }
  _sites.push_back(answering());
  _sites.back().start(++_runs, _sites.back().position());
}

// Its oldest row, or all of it.
void Run::loseOfStream() {
  if (_input.takeByte() % 8 > 0) {
    if (!_stream.empty()) _stream.erase(_stream.begin());
    return;
  }
  _stream.clear();
  _lastSequence = _position = 0;
  _reread.reset();
  _hub->streamBeganAnew();
  endBatch();
}

bool Run::isEverywhere(const Key& key) const {
  return std::all_of(_sites.begin(), _sites.end(), [&](const Site& each) { return each.has(key); });
}

// Rows come late, but not so late that the site may have lost them meanwhile.
void Run::deliverWhatIsLate() {
  std::erase_if(_onTheWay, [this](const RowHeader& each) {
    const bool isLate = !isEverywhere(keyOf(each.name));
    if (isLate) add(each);
    return isLate;
  });
}

void Run::keep(const RowHeader& row, bool isKept) {
  if (!isKept) return;
  const Key key = keyOf(row.name);
  const auto last = std::find_if(_rows.rbegin(), _rows.rend(),
                                 [&](const Key& each) { return each.first == key.first; });
  require(last == _rows.rend() || last->second < key.second, "once, and in their order");
  _rows.push_back(key);
}

void Run::readFirst() {
  const unsigned most = _input.takeByte() % 8;
  for (unsigned count = 0; count <= most; ++count) {
    const auto next = _stream.upper_bound(_position);
    if (next == _stream.end()) return;
    _position = next->first;
    keep(next->second, _hub->fromStream(next->first, next->second));
  }
}

void Run::beginReread() {
  deliverWhatIsLate();
  _isLooking = true;
  _reread = Reread{_hub->beginReread(), _lastSequence};
}

void Run::endReread() {
  _reread.reset();
  _hub->rereadEnded();
  if (_hub->wants() == Wants::nothing) _isLooking = false;
}

void Run::rereadOn() {
  if (!_reread) {
    if (_hub->wants() == Wants::reread) beginReread();
    return;
  }
  const unsigned choice = _input.takeByte();
  if (choice == 0xff) {
    _reread.reset();
    return _hub->rereadFailed();
  }
  for (unsigned count = 0; count <= choice % 16; ++count) {
    const auto next = _stream.lower_bound(_reread->next);
    if (next == _stream.end() || next->first > _reread->end) return endReread();
    _reread->next = next->first + 1;
    keep(next->second, _hub->again(next->first, next->second));
  }
}

void Run::beginFetch() {
  _request = _hub->beginFetch();
  require(_request->size() <= 64, "so many names at most");
}

// Without need, when the reader is at the end of the stream.
bool Run::fetchIfQuiet() {
  if (_hub->wants() != Wants::nothing || _request || _reread) return false;
  deliverWhatIsLate();
  if (_stream.upper_bound(_position) != _stream.end()) return false;
  _isLooking = true;
  beginFetch();
  return true;
}

void Run::makeAnswer() {
  if (!_isAlone) _answering = _input.takeByte() % _sites.size();
  _isAnswerOfOne = _isAlone;
  _answer = answering().answer(*_request, _mostFetched);
  _notInFile.clear();
  _inFile.clear();
  for (const Key& each : _written) (answering().has(each) ? _inFile : _notInFile).insert(each);
}

void Run::endFetch(bool isAnswered) {
  if (isAnswered) {
    const bool isGood = _hub->fetchEnded(_answer->end, _isAnswerOfOne);
    if (isGood && _isAnswerOfOne) _neverToldOf.insert(_notInFile.begin(), _notInFile.end());
    if (isGood && _hub->hasAll() && !_canHaveGaps) {
      const std::set<Key> rows(_rows.begin(), _rows.end());
      require(std::includes(rows.begin(), rows.end(), _inFile.begin(), _inFile.end()),
              "all that the site had, when it says so");
    }
  } else {
    if (_answer) _late.insert(_late.end(), _answer->rows.begin(), _answer->rows.end());
    _hub->fetchFailed();
  }
  _answer.reset();
  _request.reset();
  if (_hub->wants() != Wants::fetch) _isLooking = false;
}

void Run::fetchOn() {
  if (!_late.empty() && !_request) {
    require(!_hub->fetched(_late.front()), "nothing that nobody asked for");
    _late.pop_front();
  }
  if (!_request) {
    if (_hub->wants() == Wants::fetch) return beginFetch();
    return void(fetchIfQuiet());
  }
  const unsigned choice = _input.takeByte();
  if (choice >= 0xf0) return endFetch(false);
  if (!_answer) return makeAnswer();
  for (unsigned count = 0; count <= choice % 8; ++count) {
    if (_answer->rows.empty()) return endFetch(true);
    const RowHeader row = _answer->rows.front();
    _answer->rows.pop_front();
    const bool isLost = count == 0 && choice >= 0xc0;
    if (!isLost) keep(row, _hub->fetched(row));
  }
}

void Run::endBatch() {
  _kept = {_hub->state(), _rows.size(), _position};
}

void Run::die() {
  _rows.resize(_kept.rows);
  _position = _kept.position;
  startHub(_kept.state);
  _reread.reset();
  _request.reset();
  _answer.reset();
  _late.clear();
  _isLooking = false;
}

void Run::takeAnswer() {
  makeAnswer();
  for (const RowHeader& each : _answer->rows) keep(each, _hub->fetched(each));
  endFetch(true);
}

// Returns whether there was something to do.
bool Run::workOnce() {
  for (auto next = _stream.upper_bound(_position); next != _stream.end(); ++next) {
    _position = next->first;
    keep(next->second, _hub->fromStream(next->first, next->second));
  }
  if (_hub->wants() == Wants::nothing) return false;
  if (_hub->wants() == Wants::fetch) {
    beginFetch();
    takeAnswer();
    return true;
  }
  beginReread();
  for (auto next = _stream.lower_bound(_reread->next); next != _stream.end(); ++next)
    keep(next->second, _hub->again(next->first, next->second));
  endReread();
  return true;
}

void Run::beQuiet() {
  for (const RowHeader& each : _onTheWay) add(each);
  _onTheWay.clear();
  _isAlone = true;
  if (_reread) _hub->rereadFailed();
  if (_request) endFetch(false);
  // Each row may be the only one behind a hole, which takes two readings and a request, or two.
  std::size_t steps = (_mostPassedEpochs < 4 ? 24u : 6u) * _written.size() + 20;
  while (workOnce()) require(steps-- > 0, "it ends");
  require(fetchIfQuiet(), "it rests");
  takeAnswer();
  while (workOnce()) require(steps-- > 0, "it ends again");

  const std::set<Key> rows(_rows.begin(), _rows.end());
  for (const auto& [sequence, row] : _stream)
    require(rows.contains(keyOf(row.name)), "what is in the stream is kept");
  for (const Key& each : answering().rows())
    require(rows.contains(each) || _neverToldOf.contains(each), "what is in the file is kept");
  require(std::includes(_written.begin(), _written.end(), rows.begin(), rows.end()),
          "no other row");
  require(!_hub->state().passedFrom, "nothing is left over");
  require(_canHaveGaps || _hub->gaps() == 0, "no gaps when nothing is lost for good");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t count) {
  Run run({bytes, count});
  while (!run.atEnd()) run.step();
  run.beQuiet();
  return 0;
}
