// row_asker.h: asks a site for rows, as a hub does that misses some.
#ifndef DCH_TESTKIT_ROW_ASKER_H
#define DCH_TESTKIT_ROW_ASKER_H

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "dch/core/row_name.h"
#include "dch/link/row_fetch.h"
#include "dch/testkit/stream_reader.h"

namespace dch::testkit {

// What came for a request: rows, then their end or a sentence. Neither: nobody has answered.
struct FetchedRows {
  std::vector<StreamedRow> rows;  // without IDs
  std::optional<FetchEnd> end;
  std::string error;
};

class RowAsker {
 public:
  // `url` as for readStream. Throws std::runtime_error.
  explicit RowAsker(const std::string& url);
  ~RowAsker();

  void ask(const std::string& site, const std::string& request);
  void askFor(const std::string& site, const std::string& request, const std::string& answerTo);
  // Waits for the end of the answer.
  FetchedRows answer();

  // Asks until somebody answers: a site that has just been linked may not hear yet.
  FetchedRows fetch(const std::string& site, const std::string& request);
  // All that the site has behind those names, as often as it says that there is more.
  FetchedRows fetchAll(const std::string& site, std::vector<RowName> names);

 private:
  struct Connection;

  const std::unique_ptr<Connection> _connection;
};

}  // namespace dch::testkit

#endif  // DCH_TESTKIT_ROW_ASKER_H
