// nats_user.h: a user of a NATS server who tries what he may.
#ifndef DCH_TESTKIT_NATS_USER_H
#define DCH_TESTKIT_NATS_USER_H

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "dch/testkit/documented_nats.h"

namespace dch::testkit {

// Throws std::runtime_error when he is not let in, or the connection is lost.
class NatsUser {
 public:
  NatsUser(const DocumentedNats& nats, const std::string& user);
  ~NatsUser();

  struct Header {
    std::string name;
    std::string value;
  };
  // Whether the server refuses it.
  bool isRefused(const std::string& subject, const std::string& body = {},
                 const std::string& answerTo = {}, const std::vector<Header>& headers = {});
  bool isListeningRefused(const std::string& subject, const std::string& queue = {});

  // Nothing when the server says that nobody takes it, as is so for what is refused.
  std::optional<std::string> answer(const std::string& subject, const std::string& body = {},
                                    const std::vector<Header>& headers = {});

  struct Heard {
    std::string subject;
    std::string answerTo;
    std::string body;
  };
  // What has come for all that he listens to. What others sent before is among it, as they have
  // waited until the server had it.
  std::vector<Heard> heard();

 private:
  struct Ends;

  void send(const std::string& subject, const std::string& body, const std::string& answerTo,
            const std::vector<Header>& headers) const;
  void settle() const;
  bool hasRefused(const std::string& what) const;

  const std::unique_ptr<Ends> _ends;
};

}  // namespace dch::testkit

#endif  // DCH_TESTKIT_NATS_USER_H
