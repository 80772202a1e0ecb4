#include "dch/web/rows_text.h"

#include <charconv>
#include <utility>

#include "dch/web/answer.h"
#include "dch/web/json.h"
#include "dch/web/moment.h"
#include "tools/common/csv_field.h"

namespace dch {

namespace {

class JsonRows : public RowsText {
 public:
  void columns(const std::vector<std::string>& names) override {
    _json.beginObject().key("columns").beginArray();
    for (const std::string& each : names) _json.text(each);
    _json.endArray().key("rows").beginArray();
  }

  void beginRow() override { _json.beginArray(); }
  void time(Time time) override { _json.plain('"' + momentText(time) + '"'); }
  void value(const AttributeValue& value) override { _json.value(value); }
  void real(double value) override { _json.real(value); }
  void endRow() override { _json.endArray(); }
  void end() override { _json.endArray().endObject(); }

  std::size_t size() const override { return _json.size(); }
  std::string take() override { return _json.take(); }
  const char* type() const override { return jsonType; }

 private:
  Json _json;
};

class CsvRows : public RowsText {
 public:
  void columns(const std::vector<std::string>& names) override {
    beginRow();
    for (const std::string& each : names) add(tools::csvField(each));
    endRow();
  }

  void beginRow() override { _isFirst = true; }
  void time(Time time) override { add(momentText(time)); }
  void value(const AttributeValue& value) override { add(textOf(value)); }
  void real(double value) override {
    char text[32];
    add({text, std::to_chars(text, text + sizeof text, value).ptr});
  }
  void endRow() override { _text += '\n'; }
  void end() override {}

  std::size_t size() const override { return _text.size(); }
  std::string take() override { return std::exchange(_text, {}); }
  const char* type() const override { return "text/csv; charset=utf-8; header=present"; }

 private:
  static std::string textOf(const AttributeValue& value) {
    switch (value.kind) {
      case AttributeValue::Kind::number:
        return std::to_string(value.number);
      case AttributeValue::Kind::text:
        return tools::csvField(readable(value.bytes));
      case AttributeValue::Kind::bytes:
        return digitsOf(value.bytes);
      case AttributeValue::Kind::none:
        break;
    }
    return {};
  }

  void add(std::string_view field) {
    if (!std::exchange(_isFirst, false)) _text += ',';
    _text += field;
  }

  std::string _text;
  bool _isFirst = true;
};

}  // namespace

std::unique_ptr<RowsText> makeJsonRows() {
  return std::make_unique<JsonRows>();
}

std::unique_ptr<RowsText> makeCsvRows() {
  return std::make_unique<CsvRows>();
}

}  // namespace dch
