// second_reading.h: reads the stream's rows of one site again.
#ifndef DCH_LINK_SECOND_READING_H
#define DCH_LINK_SECOND_READING_H

#include <chrono>
#include <cstdint>
#include <optional>

#include "dch/link/collected_site.h"
#include "dch/link/server_connection.h"
#include "dch/link/streamed_rows.h"

namespace dch {

// One thread.
class SecondReading {
 public:
  // From the first row on that was passed over, up to what is the stream's end now. `site` is busy
  // with it until its end; it and `connection` outlive it. May take two seconds. Throws LinkError.
  SecondReading(ServerConnection& connection, CollectedSite& site);
  // Gives it up if it is still under way.
  ~SecondReading();
  SecondReading(const SecondReading&) = delete;
  SecondReading& operator=(const SecondReading&) = delete;

  // The next one; the one before is dealt with. Nothing when none is there now, or it is over. May
  // take a second after some in which nothing came. Throws LinkError.
  std::optional<StreamedRows::Message> next();

  bool isOver() const { return _isOver; }
  CollectedSite& site() const { return _site; }

 private:
  using Clock = std::chrono::steady_clock;

  void end(bool isAtEnd);

  CollectedSite& _site;
  const std::uint64_t _streamEnd;
  const std::uint64_t _firstReader;  // where that one was
  StreamedRows _rows;
  Clock::time_point _patientUntil;
  bool _hasReadLast = false;
  bool _isOver = false;
};

}  // namespace dch

#endif  // DCH_LINK_SECOND_READING_H
