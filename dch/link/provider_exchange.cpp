#include "dch/link/provider_exchange.h"

#include <charconv>
#include <string_view>
#include <utility>

#include "dch/link/known_message.h"
#include "dch/link/subject.h"

namespace dch {

namespace {

// After so many there is a look at other things.
constexpr int mostPiecesAtOnce = 8;

// Of what comes faster than it is looked at. As many sites as there may be can ask at once; of
// answers there are no more than there are questions under way.
constexpr ProviderInbox::Limits roomForQuestions{10'000, std::size_t{4} << 20};
constexpr ProviderInbox::Limits roomForAnswers{64, std::size_t{16} << 20};

// That is answered at PREFIX SITE.QUESTION.
std::optional<std::uint64_t> questionOf(std::string_view subject, std::string_view prefix) {
  const std::size_t dot = subject.rfind('.');
  if (!subject.starts_with(prefix) || dot < prefix.size()) return std::nullopt;
  std::uint64_t question = 0;
  const char* const end = subject.data() + subject.size();
  const auto read = std::from_chars(subject.data() + dot + 1, end, question);
  if (read.ec != std::errc() || read.ptr != end) return std::nullopt;
  return question;
}

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
  _answersTo = connection.newInbox() + '.';
  _answered.emplace(connection.subscribe(_answersTo + "*.*", _answers));
  _asked.emplace(connection.subscribe(knownSubject(_site), _questions));
  _connection = &connection;
}

void ProviderExchange::end() noexcept {
  if (!isOn()) return;
  _asked.reset();
  _answered.reset();
  _connection = nullptr;
  _questions->clear();
  _answers->clear();
}

void ProviderExchange::work() {
  takeOwn();
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

void ProviderExchange::answerSome() {
  for (int piece = 0; piece < mostPiecesAtOnce; ++piece) {
    const std::optional<ProviderMessage> question = _questions->take();
    if (!question) return;
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

// The number says which site was asked; no other one may send there.
void ProviderExchange::take(const ProviderMessage& answer) {
  const std::optional<std::uint64_t> question = questionOf(answer.subject, _answersTo);
  if (!question) return;
  const auto header = parseKnownHeader(answer.header);
  if (header)
    _copies.answered(*question, *header, answer.body, Clock::now());
  else
    _copies.unanswered(*question, Clock::now());
  if (!header && !answer.saysNobody) ++_unreadable;
}

void ProviderExchange::ask() {
  while (const auto question = _copies.nextQuestion(Clock::now()))
    _connection->send(
        knownSubject(question->site),
        _answersTo + subjectToken(question->site) + '.' + std::to_string(question->number), {},
        knownQuestion(question->key));
}

void ProviderExchange::heard(const SiteChanges& changes) {
  _copies.heard(changes, Clock::now());
}

std::uint64_t ProviderExchange::refused() const {
  return _unreadable + _questions->refused() + _answers->refused() + _copies.refused();
}

}  // namespace dch
