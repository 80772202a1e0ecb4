// row_stream.h: the stream of JetStream that the rows of all sites go to.
#ifndef DCH_LINK_ROW_STREAM_H
#define DCH_LINK_ROW_STREAM_H

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "dch/link/link_error.h"
#include "dch/link/link_settings.h"
#include "dch/link/outgoing_row.h"

namespace dch {

class ServerConnection;

// A connection to one server. It never connects again: who has lost it makes another one, and sends
// what was not answered again. All on one thread; it waits only as long as is said here.
class RowStream {
 public:
  // Makes the stream if it is missing. Takes two seconds at most, and the time to find the server's
  // address. Throws LinkError when rows cannot be sent there.
  RowStream(const LinkSettings& settings, const std::string& server);
  ~RowStream();  // takes half a second at most
  RowStream(const RowStream&) = delete;
  RowStream& operator=(const RowStream&) = delete;

  // tooLarge: the server will never take it.
  enum class Sent { yes, tooLarge };
  // Takes half a second at most. Throws LinkError when the connection is lost.
  Sent send(const OutgoingRow& row);

  struct Answer {
    // duplicate: the stream has a row of that ID. refused: not now. tooLarge: never.
    enum class Kind { taken, duplicate, refused, tooLarge };
    std::int64_t number = 0;  // 0: of a row that was refused, without saying which
    Kind kind = Kind::refused;
    std::string reason{};  // of a refusal
  };
  // Throws LinkError when the connection is lost, and when the user may not send rows.
  std::optional<Answer> nextAnswer(std::chrono::milliseconds atMost);

  // For what else goes the same way.
  ServerConnection& connection() { return *_connection; }

 private:
  const std::unique_ptr<ServerConnection> _connection;
};

}  // namespace dch

#endif  // DCH_LINK_ROW_STREAM_H
