#include "bench/live_pages.h"

#include <poll.h>
#include <sys/socket.h>

#include <stdexcept>
#include <vector>

#include "dch/testkit/http_client.h"

LivePages::LivePages(int count, int pagePort, const std::string& application)
    : _process([=, this] {
        read(count, pagePort, "/api/live?application=" + application + "&group=group&status");
      }) {
  _watching.waitFor(static_cast<std::uint64_t>(count));
}

void LivePages::read(int count, int pagePort, const std::string& target) {
  std::vector<dch::testkit::HttpClient> pages;
  std::vector<pollfd> waiting;
  for (int page = 0; page < count; ++page) {
    const auto& client = pages.emplace_back(pagePort);
    if (client.watch(target).status != 200) throw std::runtime_error("a page is refused");
    waiting.push_back({client.descriptor(), POLLIN, 0});
    _watching.add();
  }
  // Pages are read elsewhere: here what comes is thrown away and not copied once more.
  constexpr std::size_t most = std::size_t{4} * 1024 * 1024;
  for (;;) {
    poll(waiting.data(), waiting.size(), -1);
    for (const pollfd& each : waiting)
      if (each.revents != 0 && recv(each.fd, nullptr, most, MSG_DONTWAIT | MSG_TRUNC) > 0)
        _reads.add();
  }
}
