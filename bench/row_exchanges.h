// row_exchanges.h: the exchanges that are compared: a row and its answer.
#ifndef BENCH_ROW_EXCHANGES_H
#define BENCH_ROW_EXCHANGES_H

#include <netinet/in.h>

#include <string>

#include "bench/exchange_client.h"
#include "zora/zora.h"

// All but the bare ones are for a process whose DCH is set, or set it.

// Nothing but system calls: sends as many bytes as a row has, and waits for an answer.
bool roundTripBare(int socket, const sockaddr_in& peer);
// The same as an exchange. A row is built before each all the same, so that the peer waits as long
// as it does for the library.
Exchange exchangeBare(const sockaddr_in& peer);
// dp_data with a row that stands ready, made by `makeRow`.
Exchange sendRows(ZORA_Long handle, char* (*makeRow)() = buildRow);
// dp_formatData of 8 attributes, and dp_data.
Exchange buildAndSendRows();
// Goes on line at a real server first, with a source of its own.
Exchange sendRowsToServer(int port, const std::string& source,
                          const std::string& application = "BENCH");

// The same, with a pause before each.
Exchange afterAPause(std::chrono::milliseconds pause, Exchange exchange);

// An application whose group "group" has the one attribute that the rows have.
std::string registrationOf(const std::string& application);

// The message of such a row.
std::string rowMessage(ZORA_Long handle);

// An application "NUMBERS" whose group "group" has that many, and the message of a row of them;
// those of other rows are others.
std::string registrationOfNumbers(int numbers);
std::string rowOfNumbers(ZORA_Long handle, int row, int numbers);

// Makes the server at that port this process's DCH.
void askServer(int port);
// The same, and brings a source of the group "group" on line. Returns its handle; throws when the
// server refuses.
ZORA_Long goOnLine(int port, const std::string& registration, const std::string& source,
                   const std::string& application = "BENCH");

#endif  // BENCH_ROW_EXCHANGES_H
