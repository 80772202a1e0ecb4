#include "dch/web/answer.h"

#include "dch/web/json.h"

namespace dch {

Answer errorAnswer(int status, std::string_view sentence) {
  Json body;
  body.beginObject().key("error").text(sentence).endObject();
  return {.status = status, .type = jsonType, .body = shareText(body.take() + "\n")};
}

}  // namespace dch
