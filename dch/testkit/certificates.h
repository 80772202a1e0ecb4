// certificates.h: what a test needs to serve TLS, made by openssl for this test alone.
#ifndef DCH_TESTKIT_CERTIFICATES_H
#define DCH_TESTKIT_CERTIFICATES_H

#include <string>

#include "tests/support/temporary_files.h"

namespace dch::testkit {

class Certificates {
 public:
  Certificates();

  // Paths of PEM files.
  std::string authority() const { return file("authority.pem"); }
  std::string otherAuthority() const { return file("other_authority.pem"); }

  // What a NATS server's configuration says of TLS with a certificate for 127.0.0.1, or for another
  // host, by the authority.
  std::string here() const { return configuration("here"); }
  std::string elsewhere() const { return configuration("elsewhere"); }

 private:
  std::string file(const std::string& name) const { return _folder.path() + "/" + name; }
  std::string configuration(const std::string& name) const;
  void make(const std::string& name, const std::string& alternativeName,
            const std::string& authority);

  const TemporaryFolder _folder;
};

}  // namespace dch::testkit

#endif  // DCH_TESTKIT_CERTIFICATES_H
