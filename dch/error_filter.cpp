#include "dch/error_filter.h"

#include "zora/trc1.h"

namespace dch {

bool ErrorFilter::lets(std::string_view text, Clock::time_point now) {
  for (Trouble& trouble : _troubles) {
    if (!text.starts_with(trouble.beginning)) continue;
    const bool isNew = text != trouble.lastText || now - trouble.lastTime >= quietTime;
    if (isNew) trouble.lastText = text;
    trouble.lastTime = now;
    return isNew;
  }
  return true;
}

// Never destroyed: the receiver thread traces while the process ends.
void filterErrors() {
  static auto* const filter = new ErrorFilter;
  TRC1_SetFilter(
      [](void* context, const TRC1_Record& record) {
        return static_cast<ErrorFilter*>(context)->lets({record.text, record.textLength},
                                                        ErrorFilter::Clock::now());
      },
      filter);
}

}  // namespace dch
