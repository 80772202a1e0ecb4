#include "dch/link/site_question.h"

#include <algorithm>
#include <string>
#include <utility>

#include "dch/link/row_fetch.h"

namespace dch {

namespace {

using std::chrono::milliseconds;

// A site that says nothing for so long has not heard the question, or stands still.
constexpr milliseconds patienceWithAnswer{2'000};
// A site that takes longer holds up the questions to others.
constexpr milliseconds longestAnswer{5'000};

// No site sends more for one question.
constexpr std::uint64_t mostRowsOfAnswer = 1'024;
constexpr std::size_t mostBytesOfAnswer = 4 << 20;

const char* headerOf(natsMsg* message, const char* name) {
  const char* value = nullptr;
  return natsMsgHeader_Get(message, name, &value) == NATS_OK ? value : nullptr;
}

}  // namespace

SiteQuestion::SiteQuestion(ServerConnection& connection, CollectedSite& site,
                           std::unique_ptr<AnswerBox> box)
    : _site(site),
      _box(std::move(box)),
      _latest(Clock::now() + longestAnswer),
      _patientUntil(Clock::now() + patienceWithAnswer) {
  site.isBusy = true;
  try {
    connection.send(fetchSubject(site.name()), _box->next(site.name()), {},
                    fetchRequestText(site.rows.beginFetch()));
  } catch (...) {
    end(Answer::none);
    throw;
  }
}

SiteQuestion::~SiteQuestion() {
  if (_answer == Answer::underWay) end(Answer::none);
}

std::optional<SiteQuestion::Row> SiteQuestion::next() {
  while (_answer == Answer::underWay) {
    auto [message, nobodyTakesIt] = _box->heard();
    if (message != nullptr) {
      if (auto row = take(std::move(message))) return row;
    } else if (nobodyTakesIt || Clock::now() >= std::min(_patientUntil, _latest)) {
      end(Answer::none);
    } else {
      break;
    }
  }
  return std::nullopt;
}

// Nothing but a row that is to be kept.
std::optional<SiteQuestion::Row> SiteQuestion::take(NatsMessage message) {
  _patientUntil = Clock::now() + patienceWithAnswer;
  if (const char* const text = headerOf(message.get(), "Zord-Fetched")) {
    const auto told = parseFetchEnd(text);
    const bool isGood = told && _site.rows.fetchEnded(*told, _site.aloneRun == told->run);
    _hasMore = isGood && !told->isAll;
    if (isGood && _site.rows.hasAll()) _site.told = {told->run, told->upTo.number};
    end(isGood ? Answer::good : Answer::bad);
    return std::nullopt;
  }
  const char* const headerText = headerOf(message.get(), "Zord-Row");
  const char* const subjectText = headerOf(message.get(), "Zord-Subject");
  auto header = parseRowHeader(headerText != nullptr ? headerText : "");
  auto subject = parseRowSubject(subjectText != nullptr ? subjectText : "");
  ++_rows;
  _bytes += static_cast<std::size_t>(natsMsg_GetDataLength(message.get()));
  if (!header || !subject || !mayBeKept(*header, *subject) || subject->site != _site.name() ||
      _rows > mostRowsOfAnswer || _bytes > mostBytesOfAnswer) {
    end(Answer::bad);
    return std::nullopt;
  }
  if (!_site.rows.fetched(*header)) return std::nullopt;
  return Row{*std::move(header), *std::move(subject), std::move(message)};
}

void SiteQuestion::end(Answer answer) {
  _answer = answer;
  _site.isBusy = false;
  if (answer != Answer::good) _site.rows.fetchFailed();
}

}  // namespace dch
