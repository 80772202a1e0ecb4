// documented_site.h: the real zordchd of a site, linked as docs/nats.md shows.
#ifndef DCH_TESTKIT_DOCUMENTED_SITE_H
#define DCH_TESTKIT_DOCUMENTED_SITE_H

#include <optional>
#include <string>

#include "dch/testkit/documented_nats.h"
#include "dch/testkit/server_process.h"
#include "tests/support/temporary_files.h"

namespace dch::testkit {

// Its state file is the same in all its lives. It does not run before it begins.
class DocumentedSite {
 public:
  enum class Keeps { itsOwnRows, rowsOfAllSites };

  // By the port, which leads to that server, and with this line as its credentials; none when that
  // is empty.
  DocumentedSite(const DocumentedNats& nats, int port, const std::string& site,
                 const std::string& credentials, Keeps keeps = Keeps::itsOwnRows);
  // With the page's password.
  DocumentedSite(const DocumentedNats& nats, int port, const std::string& site,
                 Keeps keeps = Keeps::itsOwnRows)
      : DocumentedSite(nats, port, site, site + ":password-of-" + site, keeps) {}

  void begin() { _process.emplace(_arguments); }
  // Returns the exit status.
  int end();
  ServerProcess& process() { return *_process; }

  // Rows of one source, which it acknowledges, with the numbers that follow.
  void send(int count);

  // What its file has of each site: "SITE|ROWS|DIFFERENT ONES"; it has no name for itself: "null".
  std::string kept() const;

 private:
  const TemporaryFolder _folder;
  ServerProcess::Arguments _arguments;
  std::optional<ServerProcess> _process;
  int _sent = 0;
};

}  // namespace dch::testkit

#endif  // DCH_TESTKIT_DOCUMENTED_SITE_H
