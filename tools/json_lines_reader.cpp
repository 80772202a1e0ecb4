#include <nlohmann/json.hpp>

#include "tools/common/printable.h"
#include "tools/common/values.h"
#include "tools/row_reader.h"

namespace tools {
namespace {

// Takes the members of one object in their order; anything but a flat object of numbers and texts
// stops the parser, with the reason in `error`. Numbers keep the digits that they are written with.
class RowHandler : public nlohmann::json_sax<nlohmann::json> {
 public:
  RowHandler(const suite::RegisteredGroup& group, InputRow* row) : _group(group), _row(row) {}

  bool start_object(std::size_t) override {
    return _inObject ? refuseValue("an object") : (_inObject = true);
  }
  bool end_object() override { return true; }
  bool key(std::string& name) override {
    try {
      _attribute = resolveAttribute(_group, name, &_taken);
      return true;
    } catch (const BadValue& problem) {
      return stop(problem.what());
    }
  }
  bool null() override { return _inObject || refuseValue("null"); }
  bool boolean(bool) override { return refuseValue("true or false"); }
  bool number_integer(number_integer_t number) override {
    return take(InputField::Form::jsonNumber, std::to_string(number));
  }
  bool number_unsigned(number_unsigned_t number) override {
    return take(InputField::Form::jsonNumber, std::to_string(number));
  }
  bool number_float(number_float_t, const std::string& digits) override {
    return take(InputField::Form::jsonNumber, digits);
  }
  bool string(std::string& text) override { return take(InputField::Form::jsonText, text); }
  bool binary(binary_t&) override { return refuseValue("binary data"); }
  bool start_array(std::size_t) override { return refuseValue("an array"); }
  bool end_array() override { return true; }
  bool parse_error(std::size_t position, const std::string&,
                   const nlohmann::detail::exception&) override {
    return stop("malformed JSON at character " + std::to_string(position));
  }

  std::string error;

 private:
  bool stop(const std::string& reason) {
    error = reason;
    return false;
  }
  bool refuseValue(const char* found) {
    if (!_inObject) return stop(std::string(found) + " where an object is expected");
    return stop("attribute " + inQuotes(_attribute->name) + ": " + found +
                " where a number or a text is expected");
  }
  bool take(InputField::Form form, const std::string& text) {
    if (!_inObject) return refuseValue("a single value");
    _row->fields.push_back({_attribute, form, text});
    return true;
  }

  const suite::RegisteredGroup& _group;
  InputRow* _row;
  RowColumns _taken;
  const suite::RegisteredAttribute* _attribute = nullptr;
  bool _inObject = false;
};

class JsonLinesReader : public RowReader {
 public:
  JsonLinesReader(LineInput& input, const suite::RegisteredGroup& group)
      : _input(input), _group(group) {}

  bool next(InputRow* row) override {
    std::string line;
    do {
      if (!_input.next(&line)) return false;
    } while (line.find_first_not_of(" \t\r\n") == std::string::npos);
    row->lineNumber = _input.lineNumber();
    row->fields.clear();
    RowHandler handler(_group, row);
    if (!nlohmann::json::sax_parse(line, &handler)) _input.refuse(row->lineNumber, handler.error);
    return true;
  }

 private:
  LineInput& _input;
  const suite::RegisteredGroup& _group;
};

}  // namespace

std::unique_ptr<RowReader> makeJsonLinesReader(LineInput& input,
                                               const suite::RegisteredGroup& group) {
  return std::make_unique<JsonLinesReader>(input, group);
}

}  // namespace tools
