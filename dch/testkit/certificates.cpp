#include "dch/testkit/certificates.h"

#include <stdexcept>

#include "tests/support/process.h"

namespace dch::testkit {

Certificates::Certificates() {
  make("authority", "DNS:authority.example", "");
  make("other_authority", "DNS:other.example", "");
  make("here", "IP:127.0.0.1", "authority");
  make("elsewhere", "DNS:elsewhere.example", "authority");
}

std::string Certificates::configuration(const std::string& name) const {
  return "tls { cert_file: \"" + file(name + ".pem") + "\", key_file: \"" + file(name + ".key") +
         "\" }\n";
}

// Without an authority it is one itself.
void Certificates::make(const std::string& name, const std::string& alternativeName,
                        const std::string& authority) {
  Process::Arguments arguments{"req",
                               "-x509",
                               "-newkey",
                               "ec",
                               "-pkeyopt",
                               "ec_paramgen_curve:prime256v1",
                               "-nodes",
                               "-days",
                               "7",
                               "-subj",
                               "/CN=" + name,
                               "-addext",
                               "subjectAltName=" + alternativeName,
                               "-keyout",
                               file(name + ".key"),
                               "-out",
                               file(name + ".pem")};
  if (!authority.empty())
    arguments.insert(arguments.end(),
                     {"-addext", "basicConstraints=critical,CA:FALSE", "-CA",
                      file(authority + ".pem"), "-CAkey", file(authority + ".key")});
  const ProcessResult result = Process("openssl", arguments).finish();
  if (result.exitStatus != 0)
    throw std::runtime_error("openssl makes no certificate: " + result.standardError);
}

}  // namespace dch::testkit
