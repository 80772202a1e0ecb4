#include "dch/link/live_exchange.h"

#include <charconv>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <new>
#include <string>
#include <string_view>
#include <utility>

#include "dch/link/subject.h"

namespace dch {

namespace {

// The header of a live row; see LiveHeader.
constexpr char liveHeader[] = "Zord-Live";

// After so many rows there is a look at other things.
constexpr int mostRowsAtOnce = 256;

class RowsOfOthers final : public LiveInbox {
 public:
  explicit RowsOfOthers(std::shared_ptr<LiveRows> rows) : _rows(std::move(rows)) {}

  void put(const LiveMessage& message) noexcept override {
    _rows->waiting().put(message.subject(), message.header(liveHeader), message.body());
  }

 private:
  const std::shared_ptr<LiveRows> _rows;
};

bool readNumber(std::string_view text, std::uint64_t* number) {
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), *number);
  return error == std::errc() && end == text.data() + text.size();
}

// That nobody wants the rows of a group comes as the answer to one of them.
class AnswersOfNobody final : public LiveInbox {
 public:
  explicit AnswersOfNobody(std::shared_ptr<LiveRows> rows) : _rows(std::move(rows)) {}

  // To INBOX.GROUP.QUESTION.
  void put(const LiveMessage& message) noexcept override {
    if (!message.saysNobody()) return;
    std::string_view subject = message.subject();
    std::uint64_t numbers[2];
    for (std::uint64_t* const number : {&numbers[1], &numbers[0]}) {
      const std::size_t dot = subject.rfind('.');
      if (dot == std::string_view::npos || !readNumber(subject.substr(dot + 1), number)) return;
      subject = subject.substr(0, dot);
    }
    _rows->interest().nobody(numbers[0], numbers[1]);
  }

 private:
  const std::shared_ptr<LiveRows> _rows;
};

}  // namespace

LiveExchange::LiveExchange(std::shared_ptr<LiveRows> rows)
    : _rows(std::move(rows)),
      _incoming(std::make_shared<RowsOfOthers>(_rows)),
      _answers(std::make_shared<AnswersOfNobody>(_rows)) {}

// The subscription to the answers is there for the server before the first question is.
void LiveExchange::begin(LiveConnection& connection) {
  _inbox = connection.newInbox() + '.';
  _answered.emplace(connection.subscribe(_inbox + "*.*", _answers));
  _connection = &connection;
  _rows->topics().restart();
  _rows->waiting().open();
  _rows->outbox().open();
}

void LiveExchange::end() noexcept {
  if (!isOn()) return;
  _rows->outbox().close();
  _topics.clear();
  _answered.reset();
  _rows->waiting().close();
  _connection = nullptr;
}

void LiveExchange::work() {
  if (!isOn()) return;
  ask();
  sendRows();
}

void LiveExchange::ask() {
  const LiveTopics::Steps steps = _rows->topics().next(std::chrono::steady_clock::now());
  for (const std::string& topic : steps.toLetGo) _topics.erase(topic);
  try {
    for (const std::string& topic : steps.toAsk)
      _topics.insert_or_assign(topic, _connection->subscribe(*liveSubjectsOf(topic), _incoming));
  } catch (const std::bad_alloc&) {
    _topics.clear();
    _rows->topics().restart();
    throw;
  }
}

void LiveExchange::sendRows() {
  LiveOutbox& outbox = _rows->outbox();
  for (int row = 0; row < mostRowsAtOnce; ++row) {
    const OutgoingLiveRow* const next = outbox.first();
    if (next == nullptr) return;
    std::string replySubject;
    if (next->question != 0)
      replySubject = _inbox + std::to_string(next->group) + '.' + std::to_string(next->question);
    const bool isSent = _connection->send(next->subject, replySubject,
                                          {{liveHeader, next->header.c_str()}}, next->message);
    outbox.take(isSent);
  }
}

bool LiveExchange::hasMore() noexcept {
  return isOn() && _rows->outbox().first() != nullptr;
}

}  // namespace dch
