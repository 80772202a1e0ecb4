#include "tools/history_command.h"

#include <sysexits.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <clocale>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <iostream>
#include <nlohmann/json.hpp>

#include "tools/common/failure.h"
#include "tools/common/output.h"
#include "tools/common/printable.h"
#include "tools/kept_row_writer.h"
#include "tools/page_token.h"
#include "tools/text_table.h"
#include "tools/web_answer.h"

namespace tools {
namespace {

constexpr std::size_t longestRefusal = 65'536;

std::string counted(std::uint64_t rows) {
  return std::to_string(rows) + (rows == 1 ? " row" : " rows");
}

// One line on standard error, from the second second on; none where it would stand among the rows.
class RowsSoFar {
 public:
  RowsSoFar() : _isWanted(isatty(STDERR_FILENO) == 1 && isatty(STDOUT_FILENO) == 0) {}
  ~RowsSoFar() {
    if (_isShown) std::fputs(clearedLine, stderr);
  }
  RowsSoFar(const RowsSoFar&) = delete;
  RowsSoFar& operator=(const RowsSoFar&) = delete;

  void add() { ++_rows; }
  void set(std::uint64_t rows) { _rows = rows; }
  std::uint64_t rows() const { return _rows; }

  void tick() {
    const auto now = Clock::now();
    if (!_isWanted || now < _due) return;
    std::fprintf(stderr, "%szordc: %s", clearedLine, counted(_rows).c_str());
    _isShown = true;
    _due = now + std::chrono::milliseconds(500);
  }

 private:
  using Clock = std::chrono::steady_clock;
  static constexpr char clearedLine[] = "\r\x1b[K";

  const bool _isWanted;
  bool _isShown = false;
  Clock::time_point _due = Clock::now() + std::chrono::seconds(1);
  std::uint64_t _rows = 0;
};

class NobodyReads {};

void print(const std::string& lines) {
  if (!lines.empty() && !printLines(lines)) throw NobodyReads();
}

class RowPrinter : public KeptRowsSink {
 public:
  RowPrinter(KeptRowWriter* writer, RowsSoFar* soFar) : _writer(writer), _soFar(soFar) {}

  void columns(const std::vector<std::string>& names) override { _writer->columns(names); }
  void row(const std::vector<KeptValue>& values) override {
    _lines += _writer->format(values);
    _soFar->add();
  }
  void flush() {
    print(_lines);
    _lines.clear();
  }

 private:
  KeptRowWriter* const _writer;
  RowsSoFar* const _soFar;
  std::string _lines;
};

void printCsv(WebAnswer* answer, RowsSoFar* soFar) {
  CsvRecords records;
  for (;;) {
    const std::string_view piece = answer->read();
    if (piece.empty()) break;
    print(records.take(piece));
    soFar->set(records.count() - std::min<std::uint64_t>(records.count(), 1));
    soFar->tick();
  }
  if (records.count() == 0 || records.isInRecord()) throw MalformedRows("no whole record");
}

void printRows(WebAnswer* answer, KeptRowWriter* writer, RowsSoFar* soFar) {
  RowPrinter printer(writer, soFar);
  // All that came is on standard output before the next piece is waited for.
  const auto next = [&] {
    printer.flush();
    soFar->tick();
    return answer->read();
  };
  try {
    readKeptRows(next, &printer);
  } catch (const MalformedRows&) {
    printer.flush();
    throw;
  }
  printer.flush();
}

WebQuestion questionFor(const HistoryOptions& options) {
  WebQuestion question{options.web, "/api/rows", {}, {}};
  const auto add = [&](const char* name, const std::optional<std::string>& value) {
    if (value) question.parameters.emplace_back(name, *value);
  };
  add("application", options.appl);
  add("group", options.group);
  add("source", options.source);
  add("since", options.since);
  add("until", options.until);
  add("format", options.format == "csv" ? "csv" : "json");
  if (!options.tokenPath.empty()) question.token = pageTokenIn(options.tokenPath);
  return question;
}

int exitStatusFor(long status) {
  switch (status) {
    case 400:
      return EX_USAGE;
    case 401:
    case 403:
      return EX_NOPERM;
    case 404:
      return EX_NOINPUT;
    case 503:
      return EX_TEMPFAIL;
    default:
      return EX_UNAVAILABLE;
  }
}

// What the server says of itself; empty when it says nothing.
std::string sentenceIn(const std::string& body) {
  const auto json = nlohmann::json::parse(body, nullptr, false);
  if (!json.is_object() || !json.contains("error") || !json["error"].is_string()) return {};
  return printable(json["error"].get<std::string>()).text;
}

// The server names its parameters: here they are options.
std::string withOptions(std::string sentence) {
  for (const std::string name : {"since", "until"})
    for (std::size_t at; (at = sentence.find("'" + name + "'")) != std::string::npos;)
      sentence.replace(at, name.size() + 2, "--" + name);
  return sentence;
}

[[noreturn]] void refuse(WebAnswer* answer, const HistoryOptions& options) {
  const long status = answer->status();
  std::string body;
  try {
    for (;;) {
      const std::string_view piece = answer->read();
      if (piece.empty() || body.size() > longestRefusal) break;
      body += piece;
    }
  } catch (const AnswerCutShort&) {
    body.clear();
  }
  std::string sentence = sentenceIn(body);
  if (status == 400) sentence = withOptions(std::move(sentence));
  if (sentence.empty())
    sentence = printable(options.web).text + " answered with HTTP status " + std::to_string(status);
  if (status == 401)
    sentence += options.tokenPath.empty()
                    ? " (--token-file FILE)"
                    : "; that in " + printable(options.tokenPath).text + " is not the right one";
  throw Failure(exitStatusFor(status), sentence);
}

void check(WebAnswer* answer, const HistoryOptions& options) {
  if (answer->status() != 200) refuse(answer, options);
  const std::string type = answer->type();
  if (!type.starts_with(options.format == "csv" ? "text/csv" : "application/json"))
    throw Failure(EX_PROTOCOL,
                  printable(options.web).text + " answered with " + inQuotes(type) + ", not rows");
}

}  // namespace

int history(const HistoryOptions& options) {
  std::setlocale(LC_CTYPE, "");  // what a terminal can print depends on it
  std::signal(SIGPIPE, SIG_IGN);
  RowsSoFar soFar;
  WebAnswer answer(questionFor(options), [&] { soFar.tick(); });
  check(&answer, options);
  try {
    if (options.format == "csv")
      printCsv(&answer, &soFar);
    else if (options.format == "jsonl")
      printRows(&answer, makeKeptJsonLinesWriter().get(), &soFar);
    else
      printRows(&answer, makeKeptTableWriter(screenLines()).get(), &soFar);
  } catch (const NobodyReads&) {
    return EX_OK;
  } catch (const AnswerCutShort& error) {
    throw Failure(EX_PROTOCOL,
                  "the answer was cut short after " + counted(soFar.rows()) + ": " + error.what());
  } catch (const MalformedRows& error) {
    throw Failure(EX_PROTOCOL, "the answer is not of the right form after " +
                                   counted(soFar.rows()) + ": " + error.what());
  }
  if (soFar.rows() == 0) std::cerr << "zordc: no row was kept in that time\n";
  return EX_OK;
}

}  // namespace tools
