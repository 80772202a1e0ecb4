// web_rows.h: rows as pages show them.
#ifndef DCH_TESTKIT_WEB_ROWS_H
#define DCH_TESTKIT_WEB_ROWS_H

#include <string>

#include "dch/testkit/messages.h"

namespace dch::testkit {

// A row with the attributes load1, a number, and note, a text.
inline std::string loadRow(ZORA_Long handle, std::int32_t load, const std::string& note) {
  return dataMessage(handle,
                     {{"load1", 'G', bytesOf(load)}, {"note", 'T', note + std::string(1, '\0')}});
}

}  // namespace dch::testkit

#endif  // DCH_TESTKIT_WEB_ROWS_H
