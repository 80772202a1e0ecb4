#include <nlohmann/json.hpp>

#include "tools/row_writer.h"

namespace tools {
namespace {

using Json = nlohmann::ordered_json;  // members stay in the order of the row

class JsonLinesWriter : public RowWriter {
 public:
  std::string format(const std::string& time, const PushedRow& row) override {
    Json values = Json::object();
    for (const PushedValue& value : row.values)
      values[value.name] = value.value.kind == DecodedValue::Kind::number ? Json(value.value.number)
                                                                          : Json(value.value.text);
    // The attributes have an object of their own: one of them may be called "time".
    const Json line = {{"time", time}, {"handle", row.handle}, {"values", std::move(values)}};
    return line.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n";
  }
};

}  // namespace

std::unique_ptr<RowWriter> makeJsonLinesWriter() {
  return std::make_unique<JsonLinesWriter>();
}

}  // namespace tools
