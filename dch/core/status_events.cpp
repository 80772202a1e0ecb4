#include "dch/core/status_events.h"

#include <algorithm>

#include "zordchcl/messages.h"

namespace dch {

namespace {

// A name with its terminating zero.
class TextName {
 public:
  explicit TextName(std::string_view name) { name.copy(_text.data(), _text.size() - 1); }
  const char* text() const { return _text.data(); }

 private:
  std::array<char, std::max({DCH_MAX_APPL_NAME, DCH_MAX_ATTR_GROUP, DCH_MAX_SOURCE_NAME}) + 1>
      _text{};
};

}  // namespace

StatusEvent::StatusEvent(const SourceNames& names, short code) {
  DCH_MessageBuilder message(_bytes.data(), _bytes.size());
  message.add(DCH_applName, TextName(names.application).text())
      .add(DCH_attrGroup, TextName(names.group).text())
      .add(DCH_sourceName, TextName(names.source).text())
      .add(DCH_requestType, code);
  _length = static_cast<std::size_t>(message.length());
}

}  // namespace dch
