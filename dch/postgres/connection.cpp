#include "dch/postgres/connection.h"

#include <poll.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstddef>
#include <cstdlib>
#include <exception>
#include <new>
#include <system_error>
#include <utility>
#include <vector>

namespace dch::pg {

namespace {

// As in the server's catalogue.
constexpr Oid bigintType = 20;
constexpr Oid byteaType = 17;
constexpr Oid textType = 25;

constexpr int binaryForm = 1;

constexpr std::size_t mostCopiedAtOnce = std::size_t{256} * 1'024;

// Signature, flags and length of an extension; and what ends the rows.
constexpr std::string_view copyStart("PGCOPY\n\377\r\n\0\0\0\0\0\0\0\0\0", 19);
constexpr std::string_view copyEnd("\377\377", 2);

constexpr char inFailedTransaction[] = "25P02";

// Without the ends of lines.
std::string oneLine(const char* message) {
  std::string line(message);
  while (!line.empty() && line.back() == '\n') line.pop_back();
  std::replace_if(
      line.begin(), line.end(), [](char each) { return each == '\n' || each == '\t'; }, ' ');
  return line;
}

Oid typeOf(Parameters::Type type) {
  switch (type) {
    case Parameters::Type::bigint:
      return bigintType;
    case Parameters::Type::bytea:
      return byteaType;
    case Parameters::Type::text:
      return textType;
  }
  std::abort();
}

}  // namespace

// Parameters as libpq takes them.
struct Connection::Sent {
  explicit Sent(const Parameters& parameters) {
    for (const Parameters::Value& each : parameters._values) {
      const bool isNumber = each.type == Parameters::Type::bigint;
      types.push_back(typeOf(each.type));
      // A null pointer would be null, and an empty text may have one.
      const char* const bytes = each.bytes.data() != nullptr ? each.bytes.data() : "";
      values.push_back(each.isNull ? nullptr : isNumber ? each.number.data() : bytes);
      lengths.push_back(static_cast<int>(isNumber ? each.number.size() : each.bytes.size()));
      forms.push_back(binaryForm);
    }
  }
  int count() const { return static_cast<int>(types.size()); }

  std::vector<Oid> types;
  std::vector<const char*> values;
  std::vector<int> lengths;
  std::vector<int> forms;
};

Connection::Connection(const std::string& target, Duration longestWait)
    : _longestWait(longestWait) {
  beginWait();
  connect(target);
  prepareSession();
}

void Connection::connect(const std::string& target) {
  // What comes first is overridden by what is behind it.
  constexpr std::array<const char*, 4> names = {"fallback_application_name", "dbname",
                                                "client_encoding", nullptr};
  const std::array<const char*, 4> values = {"zordchd", target.c_str(), "UTF8", nullptr};
  _handle.reset(PQconnectStartParams(names.data(), values.data(), 1));
  if (!_handle) throw std::bad_alloc();
  PQsetNoticeProcessor(
      _handle.get(), [](void*, const char*) {}, nullptr);
  for (PostgresPollingStatusType state = PGRES_POLLING_WRITING; state != PGRES_POLLING_OK;
       state = PQconnectPoll(_handle.get())) {
    if (state == PGRES_POLLING_FAILED || PQstatus(_handle.get()) == CONNECTION_BAD)
      lose(PQerrorMessage(_handle.get()));
    wait(state == PGRES_POLLING_READING ? POLLIN : POLLOUT);
  }
  if (PQsetnonblocking(_handle.get(), 1) != 0) lose(PQerrorMessage(_handle.get()));
}

// A machine that is gone without a word leaves no session behind for long.
void Connection::prepareSession() {
  const std::string half = std::to_string(_longestWait.count() / 2);
  execute(
      "SET client_min_messages = error; SET bytea_output = hex; SET statement_timeout = " + half +
      "; SET idle_in_transaction_session_timeout = " + std::to_string(_longestWait.count()));
}

Result Connection::execute(const std::string& statements) {
  beginWait();
  send(PQsendQuery(_handle.get(), statements.c_str()) == 1);
  return finish();
}

Result Connection::run(const std::string& statement, const Parameters& parameters) {
  beginWait();
  const Sent sent(parameters);
  send(PQsendQueryParams(_handle.get(), statement.c_str(), sent.count(), sent.types.data(),
                         sent.values.data(), sent.lengths.data(), sent.forms.data(),
                         binaryForm) == 1);
  return finish();
}

Result Connection::runPrepared(std::string_view statement, const Parameters& parameters) {
  const Sent sent(parameters);
  auto known = _prepared.find(statement);
  if (known == _prepared.end()) {
    std::string name = "s" + std::to_string(_prepared.size() + 1);
    beginWait();
    send(PQsendPrepare(_handle.get(), name.c_str(), std::string(statement).c_str(), sent.count(),
                       sent.types.data()) == 1);
    finish();
    known = _prepared.emplace(statement, std::move(name)).first;
  }
  beginWait();
  send(PQsendQueryPrepared(_handle.get(), known->second.c_str(), sent.count(), sent.values.data(),
                           sent.lengths.data(), sent.forms.data(), binaryForm) == 1);
  return finish();
}

void Connection::each(const std::string& statement, const Parameters& parameters,
                      const std::function<void(const Result&)>& take) {
  beginWait();
  const Sent sent(parameters);
  send(PQsendQueryParams(_handle.get(), statement.c_str(), sent.count(), sent.types.data(),
                         sent.values.data(), sent.lengths.data(), sent.forms.data(),
                         binaryForm) == 1 &&
       PQsetSingleRowMode(_handle.get()) == 1);
  try {
    for (;;) {
      beginWait();
      const Result result = next();
      if (result.status() != PGRES_SINGLE_TUPLE) {
        check(result);
        break;
      }
      take(result);
    }
  } catch (const Error&) {
    if (!isLost()) finish();
    throw;
  } catch (...) {
    _handle.reset();
    throw;
  }
  finish();
}

void Connection::copy(const std::string& statement, const CopiedRows& rows) {
  beginWait();
  send(PQsendQuery(_handle.get(), statement.c_str()) == 1);
  const Result begun = next();
  if (begun.status() != PGRES_COPY_IN) {
    finish();
    check(begun);
    lose("it takes no rows for " + statement);
  }
  const auto put = [&](std::string_view bytes) {
    while (!bytes.empty()) {
      const std::string_view some = bytes.substr(0, mostCopiedAtOnce);
      beginWait();
      if (PQputCopyData(_handle.get(), some.data(), static_cast<int>(some.size())) != 1)
        lose(PQerrorMessage(_handle.get()));
      flush();
      bytes.remove_prefix(some.size());
    }
  };
  put(copyStart);
  put(rows.bytes());
  put(copyEnd);
  beginWait();
  if (PQputCopyEnd(_handle.get(), nullptr) != 1) lose(PQerrorMessage(_handle.get()));
  flush();
  finish();
}

bool Connection::isInTransaction() const {
  return _handle && PQtransactionStatus(_handle.get()) != PQTRANS_IDLE;
}

void Connection::send(bool isTaken) {
  if (!_handle) throw Error({}, "there is no connection");
  if (!isTaken) lose(PQerrorMessage(_handle.get()));
  flush();
}

// The server may want to be rid of what it says before it takes more.
void Connection::flush() {
  for (;;) {
    const int left = PQflush(_handle.get());
    if (left == 0) return;
    if (left < 0) lose(PQerrorMessage(_handle.get()));
    wait(POLLIN | POLLOUT);
    if (PQconsumeInput(_handle.get()) == 0) lose(PQerrorMessage(_handle.get()));
  }
}

// The next result of what was sent, none behind the last one.
Result Connection::next() {
  while (PQisBusy(_handle.get()) != 0) {
    wait(POLLIN);
    if (PQconsumeInput(_handle.get()) == 0) lose(PQerrorMessage(_handle.get()));
  }
  return Result(PQgetResult(_handle.get()));
}

// The last of the results that are to come. Throws the first error among them.
Result Connection::finish() {
  Result last;
  Result failed;
  for (Result result = next(); result; result = next()) {
    if (result.status() == PGRES_COPY_IN || result.status() == PGRES_COPY_OUT)
      lose("the statement is for copying rows");
    if (result.status() == PGRES_FATAL_ERROR && !failed)
      failed = std::move(result);
    else
      last = std::move(result);
  }
  if (failed) check(failed);
  return last;
}

void Connection::check(const Result& result) {
  const ExecStatusType status = result.status();
  if (status == PGRES_COMMAND_OK || status == PGRES_TUPLES_OK || status == PGRES_EMPTY_QUERY)
    return;
  const char* const state = PQresultErrorField(result.handle(), PG_DIAG_SQLSTATE);
  const char* const message = PQresultErrorField(result.handle(), PG_DIAG_MESSAGE_PRIMARY);
  if (PQstatus(_handle.get()) == CONNECTION_BAD) _handle.reset();
  throw Error(state != nullptr ? state : "",
              oneLine(message != nullptr ? message : PQresultErrorMessage(result.handle())));
}

// Until one of the events comes, or the time is over.
void Connection::wait(short events) {
  for (;;) {
    const auto left = std::chrono::ceil<Duration>(_waitEnds - Clock::now()).count();
    pollfd socket{PQsocket(_handle.get()), events, 0};
    const int count =
        poll(&socket, 1, static_cast<int>(std::clamp<Duration::rep>(left, 0, INT_MAX)));
    if (count > 0) return;
    if (count < 0 && errno != EINTR)
      lose("its socket cannot be waited for: " + std::system_category().message(errno));
    if (count == 0 && left <= 0) lose("the server does not answer in time");
  }
}

void Connection::lose(const std::string& reason) {
  const std::string line = oneLine(reason.c_str());
  _handle.reset();
  throw Error({}, line);
}

std::string quoted(std::string_view name) {
  std::string result = "\"";
  for (const char character : name) {
    if (character == '"') result += '"';
    result += character;
  }
  return result + '"';
}

Transaction::Transaction(Connection& connection) : _connection(connection) {
  connection.execute("BEGIN");
}

Transaction::~Transaction() {
  if (!_connection.isInTransaction()) return;
  try {
    _connection.execute("ROLLBACK");
  } catch (const std::exception&) {
    // It is lost: the server takes the transaction back.
  }
}

// A transaction in which something has failed is taken back by COMMIT, which says no more of it
// than that.
void Transaction::commit() {
  const Result result = _connection.execute("COMMIT");
  if (std::string_view(PQcmdStatus(const_cast<PGresult*>(result.handle()))) != "COMMIT")
    throw Error(inFailedTransaction, "the transaction was rolled back");
}

}  // namespace dch::pg
