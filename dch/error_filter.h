// error_filter.h: keeps the receive loop from filling the log with one and the same trouble.
#ifndef DCH_ERROR_FILTER_H
#define DCH_ERROR_FILTER_H

#include <array>
#include <chrono>
#include <string>
#include <string_view>

namespace dch {

// While a connection waits that cannot be taken, the receive loop says so in each of its passes.
// This lets such a line through once, and again when it has not come for a while: it is new trouble
// then. One thread at a time.
class ErrorFilter {
 public:
  using Clock = std::chrono::steady_clock;
  static constexpr std::chrono::seconds quietTime{60};

  // Whether the line, of that time, is to be written.
  bool lets(std::string_view text, Clock::time_point now);

 private:
  struct Trouble {
    std::string_view beginning;
    std::string lastText{};
    Clock::time_point lastTime{};
  };

  std::array<Trouble, 2> _troubles{{{"Error: accept failed. "}, {"Error: Maximum of "}}};
};

// Makes the trace of this process ask a filter, for good.
void filterErrors();

}  // namespace dch

#endif  // DCH_ERROR_FILTER_H
