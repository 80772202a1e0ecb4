// questions.h: what the web's thread asks the channel's, once for all who ask at the same time.
#ifndef DCH_WEB_QUESTIONS_H
#define DCH_WEB_QUESTIONS_H

#include <functional>
#include <memory>
#include <new>
#include <utility>
#include <vector>

#include "dch/net/alarm.h"
#include "dch/web/enquiry.h"

namespace dch {

// However many ask, the answers take no more than 1/20 of the channel's thread: whoever asks too
// soon waits, and shares the next one. One thread, the web's.
template <class Answer>
class Questions {
 public:
  // Null: there was no memory for it.
  using Receiver = std::function<void(const std::shared_ptr<const Answer>&)>;

  // `wakeChannel` has the channel's thread look at the enquiry, which outlives this.
  Questions(EventLoop& loop, Enquiry<Answer>& enquiry, std::function<void()> wakeChannel)
      : _enquiry(enquiry),
        _wakeChannel(std::move(wakeChannel)),
        _pause(loop, [this] { askNext(); }) {}

  // The receiver is called later, with an answer that was begun after this; when it throws
  // std::bad_alloc, once more with null.
  void ask(Receiver receiver) {
    _next.push_back(std::move(receiver));
    if (!_isUnderWay && !_pause.isSet()) askNext();
  }

  // To be called when the channel's thread may have answered.
  void collect() {
    if (!_isUnderWay || !_enquiry.isAnswered()) return;
    const auto reply = _enquiry.take();
    _isUnderWay = false;
    _pause.set(pauseForEach * reply.cost);
    for (const Receiver& each : std::exchange(_asked, {}))
      if (!tell(each, reply.answer)) tell(each, nullptr);
  }

 private:
  static constexpr int pauseForEach = 20;

  // Returns false when there is no memory for what the receiver does.
  static bool tell(const Receiver& receiver, const std::shared_ptr<const Answer>& answer) noexcept {
    try {
      receiver(answer);
      return true;
    } catch (const std::bad_alloc&) {
      return false;
    }
  }

  void askNext() {
    if (_next.empty()) return;
    _asked.swap(_next);
    _isUnderWay = true;
    _enquiry.ask();
    _wakeChannel();
  }

  Enquiry<Answer>& _enquiry;
  const std::function<void()> _wakeChannel;
  std::vector<Receiver> _next;   // who asks
  std::vector<Receiver> _asked;  // who is answered by what is under way
  bool _isUnderWay = false;
  Alarm _pause;
};

}  // namespace dch

#endif  // DCH_WEB_QUESTIONS_H
