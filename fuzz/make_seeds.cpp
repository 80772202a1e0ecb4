// make_seeds FOLDER: writes what the fuzzers start from, FOLDER/TARGET/..., and their dictionaries,
// FOLDER/TARGET.dict. Everything is made of messages as clients and the server build them.
#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <vector>

#include "dch/testkit/messages.h"
#include "fuzz/support/client_run.h"
#include "fuzz/support/link_seeds.h"
#include "fuzz/support/seed_bytes.h"
#include "fuzz/support/text_seeds.h"
#include "suite/zorp.h"
#include "tests/support/messages.h"
#include "zordchcl/messages.h"
#include "zordsock/zordsock.h"

namespace {

using namespace dch::testkit;
using fuzz::byte;
using Seeds = std::vector<std::string>;

constexpr short rowsAreSent = 1;
constexpr char commentedRegistration[] =
    "appl : HOSTMON , HMN ;\n type:SOCK; help:load and disks;\n"
    "group:load; attr:load1,D,16,one minute; attr:processes , N , 4 , ;\n group:disk; "
    "attr:name,T,32;\n";

std::string number(std::size_t value) {
  return byte(static_cast<unsigned>(value >> 8)) + byte(static_cast<unsigned>(value & 0xff));
}

// As Input::takePiece takes it.
std::string piece(const std::string& bytes) {
  return number(bytes.size()) + bytes;
}

std::string textAnswer(const std::string& text) {
  return messageOf([&](DCH_MessageBuilder& message) {
    message.addBytes(DCH_response, text.data(), static_cast<ZORA_Long>(text.size()));
  });
}

std::string statusEventMessage(const std::string& source, short code) {
  return messageOf([&](DCH_MessageBuilder& message) {
    message.add(DCH_applName, "HOSTMON")
        .add(DCH_attrGroup, "load")
        .add(DCH_sourceName, source.c_str())
        .add(DCH_requestType, code);
  });
}

Seeds requests() {
  Seeds all = {registerMessage(),
               registerMessage(commentedRegistration),
               onlineMessage("HOSTMON", "load", "host1"),
               onlineMessage("HOSTMON", "disk", "host1"),
               subscribeMessage("HOSTMON", "load"),
               statusSubscribeMessage(),
               dataMessage(1, {{"load1", 'D', "0.25"}, {"processes", 'N', std::string(4, '\1')}}),
               dataMessage(2, {{"name", 'T', "sda"}}),
               catalogueMessage(DCH_REQUEST_APPLICATIONS),
               catalogueMessage(DCH_REQUEST_APPLICATIONS, "HOSTMON"),
               catalogueMessage(DCH_REQUEST_ATTRIBUTES, "HOSTMON"),
               catalogueMessage(DCH_REQUEST_HELP, "HOSTMON"),
               actionMessage("restart", 42),
               actionMessage("restart", 43, "now"),
               actionMessage("broken", 44),
               actionResultsMessage(42),
               actionResultsMessage(43),
               actionResultsMessage(44),
               deferralMessage(42),
               withdrawMessage("HOSTMON", "load"),
               statusSubscribeMessage(DCH_SUBSCRIPTION_STOP),
               offlineMessage(1),
               unregisterMessage("HOSTMON")};
  return all;
}

Seeds answers() {
  return {statusAnswer(0),    statusAnswer(104),
          onlineAnswer(0, 7), textAnswer("HOSTMON,HMN,NODP,load,1\n"),
          textAnswer(""),     statusEventMessage("host1", DCH_REQUEST_ONLINE)};
}

// ---- Clients -----------------------------------------------------------------------------------

// What stands in front of bytes that come in pieces of these sizes, the rest in one more.
std::string cut(const std::vector<std::size_t>& sizes) {
  std::string cuts = byte(static_cast<unsigned>(sizes.size()));
  for (const std::size_t size : sizes) cuts += number(size);
  return cuts;
}

// The ways in which an answer can come; `head` stands in front of the shape.
void addArrivals(const std::string& head, const std::string& answer, Seeds* seeds) {
  seeds->push_back(head + byte(fuzz::SHAPE_ONE_DATAGRAM) + answer);
  seeds->push_back(head + byte(fuzz::SHAPE_RIGHT_LENGTH) + answer);
  seeds->push_back(head + byte(fuzz::SHAPE_CUT | fuzz::SHAPE_RIGHT_LENGTH) +
                   cut({answer.size() / 2}) + answer);
}

Seeds clientSeeds(const std::vector<std::string>& heads, const Seeds& messages) {
  Seeds seeds;
  for (const std::string& head : heads)
    for (const std::string& message : messages) addArrivals(head, message, &seeds);
  // More datagrams than a read takes.
  seeds.push_back(heads[0] + byte(fuzz::SHAPE_CUT | fuzz::SHAPE_RIGHT_LENGTH) +
                  cut(std::vector<std::size_t>(MAX_READ_CHUNKS + 1, 5)));
  // A length word in two pieces, of a message as long as it says.
  seeds.push_back(heads[0] + byte(fuzz::SHAPE_CUT | fuzz::SHAPE_RIGHT_SIZE) + cut({2}) +
                  std::string("\0\1\0\0", 4) + textAnswer("HOSTMON").substr(4));
  // A larger datagram than a read takes.
  seeds.push_back(heads[0] + byte(fuzz::SHAPE_RIGHT_LENGTH) +
                  textAnswer(std::string(UDP_CHUNK_SIZE, 'x')));
  return seeds;
}

Seeds pushedRowSeeds() {
  const std::string row = dataMessage(1, {{"load1", 'D', "0.25"}});
  Seeds seeds =
      clientSeeds({number(4096), number(row.size()), number(row.size() - 1), number(0)}, {row});
  seeds.push_back(number(64) + byte(fuzz::SHAPE_INTERRUPT) + "-TERMINATE-");
  const std::string interrupt = "-TERMINATE-";
  seeds.push_back(number(64) + byte(fuzz::SHAPE_INTERRUPT | fuzz::SHAPE_CUT) +
                  cut({interrupt.size()}) + interrupt + row);
  return seeds;
}

// ---- The server --------------------------------------------------------------------------------

// As fuzz/server_datagrams.cpp takes them: sender, and whether the length word is made to fit.
Seeds datagramSeeds() {
  constexpr unsigned rightLength = 0x80;
  Seeds seeds;
  std::string all, allMadeRight;
  unsigned sender = 0;
  for (const std::string& request : requests()) {
    seeds.push_back(byte(0) + piece(request));
    seeds.push_back(byte(rightLength) + piece(registerMessage()) + byte(rightLength | 1) +
                    piece(onlineMessage("HOSTMON", "load", "host1")) + byte(rightLength | 2) +
                    piece(request));
    all += byte(sender) + piece(request);
    allMadeRight += byte(rightLength | sender) + piece(request);
    sender = (sender + 1) & 3;
  }
  seeds.push_back(all);
  seeds.push_back(allMadeRight);
  for (const std::string& answer : answers()) seeds.push_back(byte(0) + piece(answer));
  // A larger datagram than the server reads, and texts that are notices when the server sends them.
  seeds.push_back(byte(rightLength) + piece(textAnswer(std::string(SERVER_PIECE_SIZE, 'x'))));
  for (const char* notice : {"IPC-SERVER_READY", "DP-DISCONNECT", "RESEND_MESSAGE", "SERVER_STOP"})
    seeds.push_back(byte(0) + piece(notice));
  return seeds;
}

std::string inPieces(const std::string& message, std::size_t size, unsigned connection) {
  std::string steps;
  for (std::size_t start = 0; start < message.size(); start += size)
    steps += byte(connection) + piece(message.substr(start, size));
  return steps;
}

// A connection waits for a result and ends before there is one, after so many other messages;
// another one waits too.
std::string waitersThatEnd(std::size_t before) {
  constexpr unsigned ends = 0x04;
  std::string steps;
  for (std::size_t number = 0; number < before; ++number)
    steps += byte(0) + piece(deferralMessage(1));
  steps += byte(0) + piece(actionMessage("restart", 42)) + byte(0) +
           piece(actionResultsMessage(42)) + byte(ends);
  for (int number = 0; number < 8; ++number) steps += byte(1) + piece(actionResultsMessage(42));
  return steps;
}

// As fuzz/server_stream.cpp takes them: connection and what happens, and a piece.
Seeds streamSeeds() {
  constexpr unsigned ends = 0x04, isReset = 0x08, rightLength = 0x80;
  Seeds seeds;
  std::string all;
  unsigned connection = 0;
  for (const std::string& request : requests()) {
    seeds.push_back(byte(rightLength) + piece(request));
    all += byte(connection) + piece(request);
    connection = (connection + 1) & 3;
  }
  seeds.push_back(all);
  const std::string request = registerMessage();
  for (const std::size_t size : {1u, 2u, 3u, 4u, 7u, 100u})
    seeds.push_back(inPieces(request, size, 0) + byte(ends));
  const std::string longMessage = textAnswer(std::string(10'000, 'x'));
  seeds.push_back(inPieces(longMessage, SERVER_PIECE_SIZE, 1) + byte(ends | 1));
  seeds.push_back(inPieces(longMessage, longMessage.size(), 1) + byte(ends | isReset | 1));
  seeds.push_back(inPieces(request.substr(0, 50), 20, 2) + byte(ends | 2));
  seeds.push_back(inPieces(request.substr(0, 50), 20, 2) + byte(ends | isReset | 2));
  seeds.push_back(inPieces(request + request, 1000, 3) + byte(ends | 3));
  seeds.push_back(byte(ends) + byte(ends | isReset) + byte(ends | 1));
  seeds.push_back(byte(0) + piece("RESEND_MESSAGE") + byte(1) + piece("DP-DISCONNECT"));
  for (const std::size_t before : {0u, 1u, 2u, 3u}) seeds.push_back(waitersThatEnd(before));
  return seeds;
}

// As fuzz/core.cpp takes them: all requests with a restart behind each, or with a slow store that
// keeps all, or every other change, or dies.
Seeds coreSeeds() {
  constexpr unsigned onConnection = 0x20, isRefused = 0x80, storeChanges = 5, concluded = 6;
  constexpr unsigned dies = 7;
  Seeds seeds;
  for (const unsigned carrier : {0u, onConnection}) {
    std::string together, restarted, kept, refused, dying;
    unsigned client = 0;
    for (const std::string& request : requests()) {
      const std::string message = byte(carrier | client << 3) + piece(request);
      together += message;
      restarted += message + byte(dies);
      kept += message + byte(concluded);
      refused += message + byte(concluded) + message + byte(concluded | isRefused);
      dying += message + message + byte(dies | 1 << 3) + byte(storeChanges) + byte(storeChanges);
      client = (client + 1) & 3;
    }
    for (const std::string& steps : {together, restarted})
      seeds.push_back(steps + byte(dies) + steps);
    for (const std::string& steps : {together, kept, refused, dying})
      seeds.push_back(byte(storeChanges) + steps + byte(dies | 2 << 3) + steps +
                      byte(storeChanges));
  }
  return seeds;
}

// As fuzz/stream_framer.cpp takes them: short pieces, each with its length in front.
Seeds framerSeeds() {
  Seeds seeds;
  std::string all;
  for (const std::string& request : requests()) all += request;
  for (const std::size_t size : {1u, 3u, 4u, 100u, 255u}) {
    std::string pieces;
    for (std::size_t start = 0; start < all.size(); start += size) {
      const std::string bytes = all.substr(start, size);
      pieces += byte(static_cast<unsigned>(bytes.size())) + bytes;
    }
    seeds.push_back(pieces);
  }
  return seeds;
}

// ---- Dictionaries ------------------------------------------------------------------------------

// One entry as libFuzzer reads it.
std::string entry(const std::string& bytes) {
  std::string line = "\"";
  for (const char each : bytes) {
    char escaped[8];
    std::snprintf(escaped, sizeof escaped, "\\x%02x", static_cast<unsigned char>(each));
    line += escaped;
  }
  return line + "\"\n";
}

std::string dictionary(const Seeds& words) {
  std::string lines;
  for (const std::string& word : words) lines += entry(word);
  return lines;
}

// Every field of every message, with its header.
Seeds messageWords() {
  Seeds words;
  Seeds messages = requests();
  for (const std::string& answer : answers()) messages.push_back(answer);
  for (const std::string& message : messages) {
    fuzz::FieldModel fields(message);
    while (const auto field = fields.next()) {
      constexpr std::size_t header = 6, longestWord = 40;
      if (field->value.size() <= longestWord)
        words.emplace_back(field->value.data() - header, header + field->value.size());
    }
  }
  return words;
}

// ---- Files -------------------------------------------------------------------------------------

struct Target {
  Seeds seeds;
  Seeds words;
};

std::map<std::string, Target> targets() {
  Seeds messages = requests();
  for (const std::string& answer : answers()) messages.push_back(answer);
  const Seeds words = messageWords();
  const std::vector<std::string> noHead = {""};
  const std::vector<std::string> threeHeads = {byte(0), byte(1), byte(2)};
  return {
      {"decoder", {messages, words}},
      {"status_answer", {clientSeeds(threeHeads, answers()), words}},
      {"online_answer", {clientSeeds(noHead, answers()), words}},
      {"data_answer", {clientSeeds({byte(0), byte(1), byte(7)}, answers()), words}},
      {"catalogue_answer", {clientSeeds(threeHeads, answers()), words}},
      {"action_result", {clientSeeds(noHead, answers()), words}},
      {"pushed_row", {pushedRowSeeds(), words}},
      {"status_event",
       {clientSeeds(noHead, {statusEventMessage("host1", DCH_REQUEST_ONLINE),
                             statusEventMessage(std::string(40, 'h'), rowsAreSent),
                             statusEventMessage("", DCH_REQUEST_UNREGISTER)}),
        words}},
      {"server_datagrams", {datagramSeeds(), words}},
      {"server_stream", {streamSeeds(), words}},
      {"core", {coreSeeds(), words}},
      {"stream_framer", {framerSeeds(), {std::string("\0\0\0\4", 4), std::string("\0\0\1\54", 4)}}},
      {"link_row",
       {{"site-1\nHOSTMON\nload", "a.example\n\n> *", "%2E%20%FF", "%",
         "1 000102030405060708090a0b0c0d0e0f 42 - 40 1769903999123456 7 web1",
         "1 000102030405060708090a0b0c0d0e0f 9223372036854775807 ffffffffffffffffffffffffffffffff "
         "9223372036854775806 -1 -2147483648 Nats%2DMsg%2DId%3A%201",
         "000102030405060708090a0b0c0d0e0f 42\nffffffffffffffffffffffffffffffff 0\n",
         "1 000102030405060708090a0b0c0d0e0f 42 1024 more",
         "1 ffffffffffffffffffffffffffffffff 9223372036854775807 0 all"},
        {" all", " more", "\n", "%2D", "%5F", "%00", "%FF", "1 ", " - ", " 0 ", " -1 ",
         " 9223372036854775807 ", " 2147483647 ", "000102030405060708090a0b0c0d0e0f"}}},
      // A row comes, one is sent, arrives, is answered, and the time after which it is sent again.
      {"row_window",
       {fuzz::windowSeeds(),
        {std::string("\0\0\3", 3), "\2\3", std::string("\3\0\0", 3), std::string("\3\0\2", 3),
         std::string("\4\0\1", 3), "\7\31", "\7\156"}}},
      {"incoming_rows",
       {fuzz::incomingSeeds(),
        {std::string("\17\17\0\17\7", 5), "\15\15\17", std::string("\2\0", 2), "\2\314", "\4\7",
         "\4\340", "\13\7"}}},
      {"alive_message",
       {{"1 000102030405060708090a0b0c0d0e0f 17 1500 here - 42 40 0 0 4.10.0",
         "1 000102030405060708090a0b0c0d0e0f 18446744073709551615 9223372036854775807 new "
         "ffffffffffffffffffffffffffffffff 9223372036854775807 9223372036854775807 "
         "18446744073709551615 18446744073709551615 %",
         "1 000102030405060708090a0b0c0d0e0f 1 0 stopping - - - 0 0 4.1%7Erc%201",
         "1 000102030405060708090a0b0c0d0e0f 1 0 here - - - 9 10 4\nU HOSTMON\n", "zord.alive.west",
         "zord.alive.a%2Eexample"},
        {" new ", " here ", " aside ", " stopping ", " - ", " 0 ", "\n", "zord.alive.", "%2E",
         "%FF", "9223372036854775807", "18446744073709551615",
         "000102030405060708090a0b0c0d0e0f"}}},
      {"provider_line",
       {{"A HOST.MON appl:HOST.MON,KEY;help:Loads%20of%20hosts;group:load;attr:a,A,4;",
         "U HOST%20MON", "S HOST load host/1%0A", "G HOST load %"},
        {"A ", "U ", "S ", "G ", "%20", "%FF", "%00", " %",
         "appl:", "group:", "attr:", "type:NODP;"}}},
      // All hear what is said first, somebody starts, all passes for a term.
      {"site_watch",
       {fuzz::watchSeeds(),
        {std::string("\10\10\6\0\6\0\6\0", 8), std::string("\0\144", 2), "\20\144", "\111"}}},
      {"known_message",
       {{"1 ", "1 A HOSTMON", "1 S HOSTMON load web1", "1 000102030405060708090a0b0c0d0e0f 42 more",
         "1 ffffffffffffffffffffffffffffffff 18446744073709551615 all"},
        {"1 ", " all", " more", " 0 ", " 18446744073709551615 ",
         "000102030405060708090a0b0c0d0e0f"}}},
      // A change is told, a piece is asked for and taken; pauses.
      {"site_copies",
       {fuzz::copiesSeeds(),
        {std::string("\2\0\5\7", 4), "\11\12\13", "\155", "\335", "\6\7", "\36", "S A g a\n",
         "U A\n"}}},
      {"live_header",
       {{"zord.live.west.HOSTMON.load", "zord.live.west%2E1.A.%00%FF",
         "1 000102030405060708090a0b0c0d0e0f 42 1769903999123456 web1",
         "1 ffffffffffffffffffffffffffffffff 18446744073709551615 -1 %2D%00",
         "west\nHOSTMON\nload"},
        {"zord.live.", ".", "%2D", "%00", "1 ", " 0 ", " -1 ", " 18446744073709551615 ",
         "000102030405060708090a0b0c0d0e0f"}}},
      // Rows that ask, and go out until it is heard that nobody is there; a second passes.
      {"live_interest",
       {{std::string("\0\2\0\2\0\0\5\154\0\2\2\0\0", 13),
         std::string("\3\0\0\5\154\0\2\3\0\2\2\0\0\5\0\0\2", 17),
         std::string("\0\1\2\0\5\154\0\2\2\0\0\4\1\2\0", 15)},
        {std::string("\0\2", 2), std::string("\2\0", 2), "\3", "\5\154", std::string("\5\0", 2)}}},
      {"remote_handles",
       {fuzz::handleSeeds(),
        {std::string("\0\1\10", 3), std::string("\0\4\11", 3), "\2\2", std::string("\3\0", 2),
         "\3\1", "\3\2"}}},
      {"remote_providers",
       {fuzz::providerSeeds(),
        {std::string("\0\1\0\5\0", 5), std::string("\0\1\1\4\0", 5), std::string("\0\1\2\0", 4),
         std::string("\0\1\3\4", 4), "\6", "\7\1", "\10\1", "\11\1", std::string("\12\0\107", 3),
         "\13\60\1"}}},
      {"configuration_file",
       {{fuzz::configurationText, "[channel]\nport = 70000\nprot = 1\n", "port = 1919\n",
         "[channel\n", "[channel]\nallow = ['10.0.0.1/8', 7]\n"},
        {"[channel]", "[store]", "[actions]", "[web]", "[log]", "[link]", "bind = ", "port = ",
         "allow = ['", "keep_days = ", "durability = ", "\"\"\"", "\\u0000"}}},
      {"run_file",
       {{fuzz::runText, "[[rows]]\nevery = 0\ncolumns = []\n[[rows]]\n", "rows = [{}]\n",
         "[[rows\n"},
        {"[[rows]]", "registration = ", "group = ", "source = ", "command = ", "every = ",
         "timeout = ", "format = ", "columns = [", "\"\"\"", "'''", "\\u0000", "\xc3\xa4"}}},
      {"web_request",
       {{"/\n127.0.0.1:1980\n\n\n*/*",
         "/api/rows?application=HOSTMON&group=load&source=host%201&since=-15m&until="
         "2026-01-31T23:59:59.123456Z&limit=10&format=csv\nlocalhost\nBearer token-of-some-length"
         "\n\napplication/openmetrics-text;q=0.5,text/plain;version=0.0.4;q=0.9",
         "/api/rows?points=1000&since=1769903999.5&until=-7d&group=a+b\n[::1]:80\nBasic x\n"
         "a=b; zord410_token=token-of-some-length; c\ntext/html, text/*;q=0.1",
         "/api/live?status\nmonitor.example\n\n\n", "http://evil.example/../%2e%2e\nevil.example"},
        {"application=", "group=", "since=", "until=", "points=", "limit=", "-90s", "%00", "%ff",
         "localhost", "[::1]", "Bearer ", "zord410_token=", "token-of-some-length", ";q=0.1",
         "monitor.example", "T00:00:00Z", "9223372036854775807"}}},
      {"registration",
       {{hostmonRegistration, commentedRegistration},
        {"appl:", "type:", "help:", "group:", "attr:", "SOCK;", ",D,16;", ",N,4,", "4096", ",T,"}}},
      {"product_settings", {fuzz::settingsSeeds(), {"22=", "23=", "3=", "0=", "\n", "\r\n"}}},
      {"trace_rules",
       {{"0xff", "zordsock/*=0x10", "*=0,*/dp_online=255, zordsock/ipcSock::ipcRead = 0x41",
         "nonsense", "*=zz,0x1000000000", "[a-z]*/*=1,?ord*/*=2"},
        {"zordsock/", "zordchcl/", "ipcSock::ipcRead", "dp_online", "*", "=0x", "[!a-z]",
         "[[:alpha:]]", "\\"}}},
      {"subnode_names", {fuzz::subnodeSeeds(), {":", "_", "\n", "HMN", ":HMN00"}}},
  };
}

void write(const std::filesystem::path& path, const std::string& bytes) {
  std::ofstream file(path, std::ios::binary);
  file.exceptions(std::ios::failbit | std::ios::badbit);
  file << bytes << std::flush;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: make_seeds FOLDER\n");
    return 2;
  }
  try {
    const std::filesystem::path folder = argv[1];
    for (const auto& [name, target] : targets()) {
      std::filesystem::create_directories(folder / name);
      int count = 0;
      for (const std::string& seed : target.seeds)
        write(folder / name / std::to_string(count++), seed);
      write(folder / (name + ".dict"), dictionary(target.words));
    }
  } catch (const std::exception& error) {
    std::fprintf(stderr, "make_seeds: %s\n", error.what());
    return 1;
  }
  return 0;
}
