#include "dch/link/provider_exchange.h"

#include <charconv>
#include <string_view>
#include <utility>

#include "dch/link/known_message.h"
#include "dch/link/subject.h"

namespace dch {

namespace {

// More than are under way at a time.
constexpr std::size_t mostRemembered = 4 * SiteCopies::mostUnderWay;

// After so many there is a look at other things.
constexpr int mostPiecesAtOnce = 8;

// One who asks has one question here at a time; with an account for each site several look like
// one.
constexpr std::size_t mostOfOneAsker = 16;

// Of what comes faster than it is looked at. As many sites as there may be can ask at once; of
// answers there are no more than there are questions under way.
constexpr ProviderInbox::Limits roomForQuestions{.messages = 10'000,
                                                 .bytes = std::size_t{4} << 20,
                                                 .ofOneAsker = mostOfOneAsker,
                                                 .bytesOfOne = 3 * longestProviderKey};
constexpr ProviderInbox::Limits roomForAnswers{.messages = 64,
                                               .bytes = std::size_t{16} << 20,
                                               .ofOneAsker = 64,
                                               .bytesOfOne = std::size_t{128} << 10};

// Each takes 60 kB at most: a thousand sites that begin at the same time get theirs within the
// patience that they have with a question.
constexpr unsigned mostAnswersOfSecond = 1'000;

}  // namespace

ProviderExchange::ProviderExchange(const std::string& site, const Epoch& run,
                                   std::shared_ptr<SiteProviders> providers,
                                   const std::function<void()>& wake)
    : _site(site),
      _run(run),
      _providers(std::move(providers)),
      _questions(std::make_shared<ProviderInbox>(roomForQuestions, wake)),
      _answers(std::make_shared<ProviderInbox>(roomForAnswers, wake)),
      _copies(site, _providers->others) {
  _providers->own.setWake(wake);
}

// Whoever asks is answered at the places that are his alone.
void ProviderExchange::begin(LiveConnection& connection) {
  _questions->clear();
  _answers->clear();
  _answersTo = connection.newInbox() + '.';
  _answered.emplace(connection.subscribe(_answersTo + "*.*", _answers, LiveConnection::Room::much));
  _asked.emplace(connection.subscribe(knownSubject(_site), _questions));
  _connection = &connection;
}

// Also when only one of the two was begun.
void ProviderExchange::end() noexcept {
  _asked.reset();
  _answered.reset();
  _connection = nullptr;
}

void ProviderExchange::work() {
  if (!isOn()) return;
  answerSome();
  takeAnswers();
  ask();
}

// What could not be taken for want of memory is taken again.
void ProviderExchange::takeOwn() {
  for (int piece = 0; piece < mostPiecesAtOnce; ++piece) {
    if (!_ownNews) _ownNews = _providers->own.take();
    if (!_ownNews) return;
    _own.take(*_ownNews);
    _ownNews = _providers->own.take();
  }
}

// Who asks without an end waits longer, and does not make this site work for it alone.
void ProviderExchange::answerSome() {
  const auto now = Clock::now();
  if (now - _secondFrom >= std::chrono::seconds(1)) {
    _secondFrom = now;
    _answeredInSecond = 0;
  }
  for (int piece = 0; piece < mostPiecesAtOnce; ++piece) {
    const std::optional<ProviderMessage> question = _questions->take();
    if (!question) return;
    if (++_answeredInSecond > mostAnswersOfSecond) {
      ++_unreadable;
      continue;
    }
    answer(*question);
  }
}

// Only inboxes are answered, which begin with an underscore: nobody is to have a site send under
// its name to a subject that others read.
void ProviderExchange::answer(const ProviderMessage& question) {
  const std::optional<std::string> key = parseKnownQuestion(question.body);
  if (!key || !question.asker.starts_with('_')) {
    ++_unreadable;
    return;
  }
  const OwnProviders::Piece piece = _own.answer(*key);
  if (piece.revision == 0) return;  // he asks again
  const std::string header = knownHeaderText({_run, piece.revision, piece.isAll});
  _connection->send(question.asker, {}, {{knownHeaderName, header.c_str()}}, piece.text);
}

void ProviderExchange::takeAnswers() {
  for (int piece = 0; piece < mostPiecesAtOnce; ++piece) {
    const std::optional<ProviderMessage> next = _answers->take();
    if (!next) return;
    take(*next);
  }
}

// Each site may send to places with its own name alone, and so answers for itself alone.
void ProviderExchange::take(const ProviderMessage& answer) {
  const std::optional<AnswerPlace> place = placeOf(answer.subject);
  if (!place || !isFromWhoWasAsked(*place)) {
    ++_unreadable;
    return;
  }
  const auto header = parseKnownHeader(answer.header);
  if (header)
    _copies.answered(place->question, *header, answer.body, Clock::now());
  else
    _copies.unanswered(place->question, Clock::now());
  if (!header && !answer.saysNobody) ++_unreadable;
}

// PREFIX SITE.QUESTION
std::optional<ProviderExchange::AnswerPlace> ProviderExchange::placeOf(
    std::string_view subject) const {
  if (!subject.starts_with(_answersTo)) return std::nullopt;
  subject.remove_prefix(_answersTo.size());
  const std::size_t dot = subject.find('.');
  if (dot == std::string_view::npos) return std::nullopt;
  std::optional<std::string> site = nameOfToken(subject.substr(0, dot));
  if (!site) return std::nullopt;
  AnswerPlace place{*std::move(site)};
  const char* const end = subject.data() + subject.size();
  const auto read = std::from_chars(subject.data() + dot + 1, end, place.question);
  if (read.ec != std::errc() || read.ptr != end) return std::nullopt;
  return place;
}

bool ProviderExchange::isFromWhoWasAsked(const AnswerPlace& place) {
  const auto asked = _sitesAsked.find(place.question);
  return asked != _sitesAsked.end() && asked->second == place.site;
}

void ProviderExchange::ask() {
  while (const auto question = _copies.nextQuestion(Clock::now())) {
    _sitesAsked.emplace(question->number, question->site);
    if (_sitesAsked.size() > mostRemembered) _sitesAsked.erase(_sitesAsked.begin());
    _connection->send(
        knownSubject(question->site),
        _answersTo + subjectToken(question->site) + '.' + std::to_string(question->number), {},
        knownQuestion(question->key));
  }
}

void ProviderExchange::heard(const SiteChanges& changes) {
  _copies.heard(changes, Clock::now());
}

std::uint64_t ProviderExchange::refused() const {
  return _unreadable + _questions->refused() + _answers->refused() + _copies.refused();
}

}  // namespace dch
