// site_fleet.h: very many sites, as a NATS server and a hub see them.
#ifndef DCH_TESTKIT_SITE_FLEET_H
#define DCH_TESTKIT_SITE_FLEET_H

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "dch/core/epoch.h"

namespace dch::testkit {

// Each site has a connection of its own, says as often as it should that it is there, and hears all
// the others. Its rows go to the stream, and it gives them to whoever asks for them.
class SiteFleet {
 public:
  struct Size {
    int sites = 1'000;
    int sourcesOfSite = 1'000;
  };

  // `url` is of a server that has the stream when rows are published. Throws std::runtime_error, as
  // the others do.
  SiteFleet(std::string url, const Size& size);
  ~SiteFleet();
  SiteFleet(const SiteFleet&) = delete;
  SiteFleet& operator=(const SiteFleet&) = delete;

  // Each source sends as many rows, as fast as the stream takes them; the sites do so in turns.
  // Returns when all are in the stream.
  void publish(int rowsOfSource);

  // How many messages of other sites all together have got so far.
  std::uint64_t heard() const { return _heard; }
  // How often somebody asked for rows.
  std::uint64_t questions() const { return _questions; }

 private:
  struct Ends;
  struct Row;

  void speakInTurns();
  void say(int site, std::uint64_t count);
  Row rowOf(int site, std::int64_t number) const;
  void answer(const std::string& subject, const std::string& request, const char* asker);

  const std::string _url;
  const Size _size;
  std::unique_ptr<Ends> _ends;
  // Of each site, whose rows have the numbers from 1 on.
  std::vector<std::atomic<std::int64_t>> _published;
  std::atomic<std::uint64_t> _heard = 0, _questions = 0;
  std::atomic<bool> _isEnding = false;
  std::thread _speaking;
};

}  // namespace dch::testkit

#endif  // DCH_TESTKIT_SITE_FLEET_H
