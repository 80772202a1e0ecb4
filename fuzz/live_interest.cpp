// The rows of a group, and a server of NATS that the fuzzer decides on: subscribers come and go,
// and what it answers, that there are none, is late, lost, doubled, or what nobody asked for. A row
// asks each second; who was there when one asked gets those behind it, and rows that nobody wants
// go out no more when that was heard.
#include "dch/link/live_interest.h"

#include <vector>

#include "fuzz/support/input.h"
#include "fuzz/support/require.h"

namespace {

using fuzz::require;

class Run {
 public:
  explicit Run(const fuzz::Input& input) : _input(input) {}

  bool atEnd() const { return _input.atEnd(); }
  void step();

 private:
  void pass();
  void answer();

  fuzz::Input _input;
  dch::LiveInterest _interest{2};
  dch::Time _now = 1'000'000'000;
  bool _isSubscribed = false;
  std::vector<std::uint64_t> _answers;  // on their way, each: nobody
  std::uint64_t _asked = 0;
  dch::Time _askedAt = 0;
  bool _isHeard = false;  // that nobody was there when the last one asked
};

void Run::step() {
  switch (_input.takeByte() % 6) {
    case 0:
    case 1:
      return pass();
    case 2:
      return answer();
    case 3:
      _isSubscribed = !_isSubscribed;
      return;
    case 4:  // of another group, or of what was not asked
      _interest.nobody(1 + _input.takeByte() % 2, 1);
      _interest.nobody(0, _asked + 1 + _input.takeByte());
      return;
    default:
      _now += 10'000 * (static_cast<dch::Time>(_input.takeByte()) - 8);
  }
}

void Run::pass() {
  const bool isDue =
      _asked == 0 || _now < _askedAt || _now >= _askedAt + dch::LiveInterest::pauseOfQuestions;
  const auto [isWanted, question] = _interest.pass(0, _now);
  require((question != 0) == isDue, "a row asks each second, and no other does");
  if (!isDue) {
    require(isWanted == !_isHeard, "rows go out until it is heard that nobody is there");
    return;
  }
  require(isWanted && question == _asked + 1, "a row that asks goes out, with a new question");
  _asked = question;
  _askedAt = _now;
  _isHeard = false;
  const unsigned fate = _input.takeByte() % 8;
  if (_isSubscribed || fate == 0) return;
  for (unsigned copy = 0; copy < (fate == 1 ? 2u : 1u); ++copy) _answers.push_back(question);
}

void Run::answer() {
  if (_answers.empty()) return;
  const auto place =
      _answers.begin() + static_cast<std::ptrdiff_t>(_input.takeByte() % _answers.size());
  if (*place == _asked) _isHeard = true;
  _interest.nobody(0, *place);
  _answers.erase(place);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t count) {
  Run run({bytes, count});
  while (!run.atEnd()) run.step();
  return 0;
}
