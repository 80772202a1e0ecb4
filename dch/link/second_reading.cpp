#include "dch/link/second_reading.h"

#include <algorithm>

#include "dch/link/stream_settings.h"
#include "dch/link/subject.h"

namespace dch {

namespace {

// A reader that gets nothing for so long is at the end, or it went down with its server.
constexpr std::chrono::milliseconds patienceWithReader{5'000};

}  // namespace

SecondReading::SecondReading(ServerConnection& connection, CollectedSite& site)
    : _site(site),
      _streamEnd(std::max(provideRowsStream(connection).lastSequence, site.lastSequence)),
      _firstReader(site.lastSequence),
      _rows(connection, "zord.rows." + subjectToken(site.name()) + ".>",
            *site.rows.state().passedFrom),
      _patientUntil(Clock::now() + patienceWithReader) {
  site.rows.beginReread();
  site.isBusy = true;
}

SecondReading::~SecondReading() {
  if (!_isOver) end(false);
}

std::optional<StreamedRows::Message> SecondReading::next() {
  if (_hasReadLast) end(true);
  if (_isOver) return std::nullopt;
  auto message = _rows.next({});
  const auto now = Clock::now();
  if (!message) {
    if (now >= _patientUntil) end(_rows.isAtEnd());
    return std::nullopt;
  }
  _patientUntil = now + patienceWithReader;
  // What comes behind that end the first reader reads. A server that knows less of the stream than
  // that one's has no more to send too early.
  _hasReadLast = message->sequence >= _streamEnd ||
                 (message->pending == 0 && message->sequence >= _firstReader);
  return message;
}

void SecondReading::end(bool isAtEnd) {
  _isOver = true;
  _site.isBusy = false;
  isAtEnd ? _site.rows.rereadEnded() : _site.rows.rereadFailed();
}

}  // namespace dch
