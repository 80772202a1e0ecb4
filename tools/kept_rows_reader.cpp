#include "tools/kept_rows_reader.h"

#include <cstddef>
#include <iterator>
#include <nlohmann/json.hpp>
#include <utility>

namespace tools {
namespace {

class TextPieces {
 public:
  explicit TextPieces(const std::function<std::string_view()>& next) : _next(next) {}

  // Asks for more only when all before was used.
  bool isAtEnd() {
    if (_rest.empty() && !_isAtEnd) {
      _rest = _next();
      _isAtEnd = _rest.empty();
    }
    return _isAtEnd;
  }
  char front() const { return _rest.front(); }
  void advance() { _rest.remove_prefix(1); }

 private:
  const std::function<std::string_view()>& _next;
  std::string_view _rest;
  bool _isAtEnd = false;
};

// The characters of the pieces; without pieces, their end.
class TextIterator {
 public:
  using iterator_category = std::input_iterator_tag;
  using value_type = char;
  using difference_type = std::ptrdiff_t;
  using pointer = const char*;
  using reference = char;

  explicit TextIterator(TextPieces* pieces = nullptr) : _pieces(pieces) {}
  char operator*() const { return _pieces->front(); }
  TextIterator& operator++() {
    _pieces->advance();
    return *this;
  }
  bool operator==(const TextIterator& other) const { return isAtEnd() == other.isAtEnd(); }

 private:
  bool isAtEnd() const { return _pieces == nullptr || _pieces->isAtEnd(); }

  TextPieces* _pieces;
};

// Follows the one form that there is; whatever comes where it has no place is malformed.
class KeptRowsHandler : public nlohmann::json_sax<nlohmann::json> {
 public:
  explicit KeptRowsHandler(KeptRowsSink* sink) : _sink(sink) {}

  bool null() override { return add({KeptValue::Kind::none, {}}); }
  bool boolean(bool /*value*/) override { unexpected(); }
  bool number_integer(number_integer_t value) override {
    return add({KeptValue::Kind::number, std::to_string(value)});
  }
  bool number_unsigned(number_unsigned_t value) override {
    return add({KeptValue::Kind::number, std::to_string(value)});
  }
  bool number_float(number_float_t /*value*/, const string_t& text) override {
    return add({KeptValue::Kind::number, text});
  }
  bool string(string_t& text) override {
    if (_place == Place::columns) {
      _columns.push_back(std::move(text));
      return true;
    }
    return add({KeptValue::Kind::text, std::move(text)});
  }
  bool binary(binary_t& /*value*/) override { unexpected(); }

  bool start_object(std::size_t /*size*/) override { return go(Place::outside, Place::object); }
  bool end_object() override { return go(Place::afterRows, Place::outside); }
  bool key(string_t& name) override {
    if (_place == Place::object && name == "columns") return go(_place, Place::beforeColumns);
    if (_place == Place::afterColumns && name == "rows") return go(_place, Place::beforeRows);
    unexpected();
  }
  bool start_array(std::size_t /*size*/) override {
    if (_place == Place::beforeColumns) return go(_place, Place::columns);
    if (_place == Place::beforeRows) return go(_place, Place::rows);
    return go(Place::rows, Place::row);
  }
  bool end_array() override {
    if (_place == Place::columns) {
      _sink->columns(_columns);
      return go(_place, Place::afterColumns);
    }
    if (_place == Place::rows) return go(_place, Place::afterRows);
    if (_place != Place::row || _values.size() != _columns.size()) unexpected();
    _sink->row(_values);
    _values.clear();
    return go(_place, Place::rows);
  }
  bool parse_error(std::size_t position, const std::string& /*token*/,
                   const nlohmann::detail::exception& /*error*/) override {
    throw MalformedRows("no JSON at byte " + std::to_string(position));
  }

 private:
  enum class Place {
    outside,
    object,
    beforeColumns,
    columns,
    afterColumns,
    beforeRows,
    rows,
    row,
    afterRows
  };

  [[noreturn]] static void unexpected() { throw MalformedRows("no rows"); }

  bool go(Place from, Place to) {
    if (_place != from) unexpected();
    _place = to;
    return true;
  }

  bool add(KeptValue&& value) {
    if (_place != Place::row || _values.size() == _columns.size()) unexpected();
    _values.push_back(std::move(value));
    return true;
  }

  KeptRowsSink* const _sink;
  Place _place = Place::outside;
  std::vector<std::string> _columns;
  std::vector<KeptValue> _values;
};

}  // namespace

void readKeptRows(const std::function<std::string_view()>& next, KeptRowsSink* sink) {
  TextPieces pieces(next);
  KeptRowsHandler handler(sink);
  nlohmann::json::sax_parse(TextIterator(&pieces), TextIterator(), &handler);
}

}  // namespace tools
