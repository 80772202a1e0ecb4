// enquiry.h: a question of the web's thread to the channel's, and the answer to it.
#ifndef DCH_WEB_ENQUIRY_H
#define DCH_WEB_ENQUIRY_H

#include <atomic>
#include <chrono>
#include <cstddef>
#include <memory>
#include <new>
#include <utility>

#include "dch/between/ring.h"

namespace dch {

// One question at a time. Neither thread waits for the other. What an answer is made in comes back
// when it is not needed any more, and is used again: the channel's thread hardly ever takes memory,
// and never waits for the web's to have given some back.
template <class Answer>
class Enquiry {
 public:
  using Cost = std::chrono::steady_clock::duration;

  Enquiry() = default;
  Enquiry(const Enquiry&) = delete;
  Enquiry& operator=(const Enquiry&) = delete;

  // The web's thread.

  // None is under way.
  void ask() noexcept { _state.store(State::asked, std::memory_order_release); }
  bool isAnswered() const noexcept {
    return _state.load(std::memory_order_acquire) == State::answered;
  }
  struct Reply {
    std::shared_ptr<const Answer> answer;  // null: there was no memory for it
    Cost cost;                             // the time of the channel's thread that it took
  };
  // It is answered. The last reference to the answer goes on the web's thread, before the enquiry
  // does.
  Reply take() noexcept {
    std::unique_ptr<Answer> answer = std::move(_answer);
    const Cost cost = _cost;
    _state.store(State::none, std::memory_order_relaxed);
    if (answer == nullptr) return {nullptr, cost};
    const auto giveItBack = [this](Answer* used) { giveBack(used); };
    try {
      return {std::shared_ptr<const Answer>(answer.release(), giveItBack), cost};
    } catch (const std::bad_alloc&) {
      return {nullptr, cost};
    }
  }

  // The channel's thread.

  bool isAsked() const noexcept { return _state.load(std::memory_order_acquire) == State::asked; }
  // What the answer is to be made in, with what was in it before. Throws std::bad_alloc.
  std::unique_ptr<Answer> takeUsed() {
    if (std::unique_ptr<Answer>* const used = _used.first()) {
      std::unique_ptr<Answer> answer = std::move(*used);
      _used.take();
      return answer;
    }
    return std::make_unique<Answer>();
  }
  // It is asked. Null without memory for it.
  void answer(std::unique_ptr<Answer> answer, Cost cost) noexcept {
    _answer = std::move(answer);
    _cost = cost;
    _state.store(State::answered, std::memory_order_release);
  }

 private:
  enum class State { none, asked, answered };

  static constexpr std::size_t mostUsed = 4;

  void giveBack(Answer* answer) noexcept {
    std::unique_ptr<Answer> used(answer);
    if (std::unique_ptr<Answer>* const room = _used.room()) {
      *room = std::move(used);
      _used.put();
    }
  }

  std::atomic<State> _state{State::none};
  std::unique_ptr<Answer> _answer;  // the channel's thread's while it is asked, then the web's
  Cost _cost{};
  Ring<std::unique_ptr<Answer>> _used{mostUsed};
};

}  // namespace dch

#endif  // DCH_WEB_ENQUIRY_H
