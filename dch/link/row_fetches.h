// row_fetches.h: gives rows of this site to those who ask for them.
#ifndef DCH_LINK_ROW_FETCHES_H
#define DCH_LINK_ROW_FETCHES_H

#include <string>
#include <string_view>

#include "dch/core/epoch.h"
#include "dch/link/nats.h"
#include "dch/link/server_connection.h"
#include "dch/store/rows_in_order.h"

namespace dch {

// A row goes as it does to the stream, with its header Zord-Row, and with its subject there in the
// header Zord-Subject. Only inboxes are answered, which begin with an underscore: nobody is to have
// a site send its rows, under its name, to a subject that is read. What is said beside the rows is
// told in row_fetch.h; a request that cannot be read is answered by the header Zord-Error, a
// sentence. Of several sites of one name, as a clone is, one answers. One thread.
class RowFetches {
 public:
  // `run`: of the server, as it says. `connection` and `rows` outlive it. Throws LinkError.
  RowFetches(std::string site, const Epoch& run, ServerConnection& connection, RowsInOrder& rows);

  // Answers one request, if there is any: reads one pass of the file, and sends what is in it.
  // Returns whether there was one. Throws LinkError, NotPermitted when the user may not be asked,
  // and HistoryError: then there is no answer.
  bool answerNext();

 private:
  void answer(const std::string& asker, std::string_view request);
  void sendLast(const std::string& asker, const char* header, const std::string& value);

  const std::string _site;
  const Epoch _run;
  ServerConnection& _connection;
  RowsInOrder& _rows;
  const ServerConnection::Subscription _requests;
};

}  // namespace dch

#endif  // DCH_LINK_ROW_FETCHES_H
