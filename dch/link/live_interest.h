// live_interest.h: whether somebody elsewhere wants the rows of a group.
#ifndef DCH_LINK_LIVE_INTEREST_H
#define DCH_LINK_LIVE_INTEREST_H

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "dch/core/message.h"

namespace dch {

// Nobody says what he wants: once a second a row of a group asks, and when the server of NATS
// answers that nobody has subscribed, no more of them go out until the next one asks. So it mends
// itself within a second, whatever was lost, and there is nothing to forge but such an answer.
//
// One thread, but for what says otherwise.
class LiveInterest {
 public:
  // Groups are counted from 0.
  explicit LiveInterest(std::size_t groups) : _groups(groups) {}

  // A row asks again after so long.
  static constexpr Time pauseOfQuestions = 1'000'000;

  struct Pass {
    bool isWanted = false;
    std::uint64_t question = 0;  // not 0: the row asks this one

    friend bool operator==(const Pass&, const Pass&) = default;
  };
  // There is a row of the group, at this time of whatever clock. One that asks goes out, and so do
  // those behind it until nobody() tells its answer.
  Pass pass(std::size_t group, Time now);

  // The answer to a question. Those before the last one of the group count no more, and what was
  // never asked does not either. Any thread.
  void nobody(std::size_t group, std::uint64_t question) noexcept;

 private:
  struct Group {
    Time askedAt = 0;
    std::atomic<std::uint64_t> asked{0};    // the last question; none is 0
    std::atomic<std::uint64_t> refused{0};  // the last one to which the answer was: nobody
  };

  std::vector<Group> _groups;
};

}  // namespace dch

#endif  // DCH_LINK_LIVE_INTEREST_H
