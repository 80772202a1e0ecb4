// streamed_rows.h: reads the stream of rows.
#ifndef DCH_LINK_STREAMED_ROWS_H
#define DCH_LINK_STREAMED_ROWS_H

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "dch/link/nats.h"
#include "dch/link/server_connection.h"

namespace dch {

// Which stream it is: one that was removed and made again has its sequence from 1 on.
struct StreamPlace {
  std::string stream;          // when it was made, as the server writes it
  std::uint64_t sequence = 0;  // of a message in it
};

// In the order of the stream. One thread.
class StreamedRows {
 public:
  // Those of these subjects, from the first one with this sequence or a later one on.
  // `connection` outlives it. May take a second. Throws LinkError.
  StreamedRows(ServerConnection& connection, const std::string& subjects, std::uint64_t from);
  ~StreamedRows();
  StreamedRows(StreamedRows&&) = default;

  struct Message {
    std::uint64_t sequence = 0;
    std::uint64_t pending = 0;  // that were to come behind it, when it was sent
    NatsMessage message;

    std::string_view subject() const { return natsMsg_GetSubject(message.get()); }
    std::string_view header() const;  // Zord-Row; empty when there is none
    std::string_view body() const;
  };
  // Nothing when none comes in time. Throws LinkError, also when one got lost on the way.
  std::optional<Message> next(std::chrono::milliseconds atMost);

  // Whether there was nothing more to read, when the server was asked just now. May take a second.
  // Throws LinkError.
  bool isAtEnd();

 private:
  void answerControl(natsMsg* message);

  ServerConnection& _connection;
  ServerConnection::Subscription _rows;
  std::string _reader;      // the server's name of it
  std::uint64_t _read = 0;  // of those that it was sent
};

}  // namespace dch

#endif  // DCH_LINK_STREAMED_ROWS_H
