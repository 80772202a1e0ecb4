// false_site.h: hears what a site is asked for, and says what a test wants it to.
#ifndef DCH_TESTKIT_FALSE_SITE_H
#define DCH_TESTKIT_FALSE_SITE_H

#include <memory>
#include <string>

namespace dch::testkit {

class FalseSite {
 public:
  // Throws std::runtime_error, as the others do.
  FalseSite(const std::string& url, const std::string& site);
  ~FalseSite();

  // Where the answer to the next request has to go; empty when none comes.
  std::string nextAsker() const;

  // The row behind the one with the number before.
  void sendRow(int number, const std::string& to) const;
  std::string subject() const;
  void flush() const;

 private:
  struct Ends;

  const std::string _site;
  const std::unique_ptr<Ends> _ends;
};

}  // namespace dch::testkit

#endif  // DCH_TESTKIT_FALSE_SITE_H
