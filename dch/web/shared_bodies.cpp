#include "dch/web/shared_bodies.h"

#include <utility>

namespace dch {

// Counts while somebody has it.
struct SharedBodies::Counted {
  Counted(std::string&& made, std::shared_ptr<std::size_t> all)
      : text(std::move(made)), bytes(std::move(all)) {
    *bytes += text.size();
  }
  ~Counted() { *bytes -= text.size(); }
  Counted(const Counted&) = delete;
  Counted& operator=(const Counted&) = delete;

  const std::string text;
  const std::shared_ptr<std::size_t> bytes;
};

SharedText SharedBodies::of(const std::shared_ptr<const Snapshot>& snapshot, Kind kind,
                            const std::function<std::string()>& make) {
  Body& body = _bodies.at(static_cast<std::size_t>(kind));
  if (SharedText text = body.text.lock(); text != nullptr && body.snapshot.lock() == snapshot)
    return text;
  if (*_bytes > mostBytes) return nullptr;
  const auto counted = std::make_shared<const Counted>(make(), _bytes);
  SharedText text(counted, &counted->text);
  body = {snapshot, text};
  return text;
}

}  // namespace dch
