#include "dch/service/options.h"

#include <sysexits.h>

#include <CLI/CLI.hpp>
#include <charconv>

#include "dch/journal.h"
#include "dch/service/setting_checks.h"
#include "tools/common/completion.h"

namespace dch {

namespace {

std::string checkPort(const std::string& text) {
  int port = -1;
  const char* const end = text.data() + text.size();
  const auto [stopped, error] = std::from_chars(text.data(), end, port);
  const bool isPort = error == std::errc() && stopped == end && port >= 0 && port <= 65535;
  return isPort ? "" : "'" + text + "' is not a port number from 0 to 65535";
}

constexpr char description[] =
    "Data-collection server: takes rows from data providers and passes them on to consumers.\n"
    "Runs until SIGTERM or SIGINT. On SIGUSR1 it prints its applications, their numbers of "
    "sources\n"
    "on line and the report requests that were deferred on standard error; on SIGHUP it reads "
    "its\n"
    "configuration file again.";

constexpr char notes[] =
    "Options go before the configuration file, and that before the environment.\n"
    "Without --port it serves port ZORA_DCH_PORT, else product setting 22, else 1919.\n"
    "Without --bind it serves address ZOR0_BIND_ADDR, else 127.0.0.1.\n"
    "A named instance whose port is 1919 takes the first free candidate port instead.\n"
    "\n"
    "Without --store the state is in zordchd.db in systemd's state directory, else in\n"
    "zord410/zordchd-PORT.db in $XDG_STATE_HOME or ~/.local/state. With --port 0 it is in memory.\n"
    "\n"
    "A file for --actions has a line 'NAME PROGRAM [ARGUMENT...]' for each action: a name that\n"
    "consumers use, the absolute path of a program and its arguments, split at blanks. No shell\n"
    "sees them. A word that starts with # starts a comment. Other actions are not carried out.\n"
    "\n"
    "Exit status: 0 after a signal to stop, 1 when it cannot serve, 64 after a wrong command "
    "line,\n"
    "78 after a wrong configuration file, or file of actions or of state.\n"
    "\n"
    "Example, a server for the programs of this machine that tells what it does:\n"
    "  zordchd --port 1919 --verbose";

}  // namespace

std::optional<int> readOptions(int argc, const char* const* argv, Options* options) {
  CLI::App app(description, "zordchd");
  app.footer(notes);
  app.set_version_flag("-V,--version", "zordchd " ZORD410_VERSION, "Print the version and exit");
  CLI::Option* const configuration =
      app.add_option("--config", options->configurationFile,
                     "Read this configuration file; SIGHUP reads it again")
          ->type_name("FILE")
          ->check(checkFileName);
  app.add_flag("--check", options->isCheck,
               "Say whether the configuration file is in order, and exit")
      ->needs(configuration);
  app.add_option("--port", options->port,
                 "Serve this port, for datagrams and streams; 0 takes any free one")
      ->type_name("N")
      ->check(checkPort);
  app.add_option("--bind", options->bindAddress,
                 "Serve this IPv4 address of the machine; 0.0.0.0 is all of them")
      ->type_name("ADDR")
      ->check(checkAddress);
  app.add_option("--instance", options->instance, "Run as a named instance, up to 20 characters")
      ->type_name("NAME")
      ->check(checkInstanceName);
  app.add_option("--actions", options->actionsFile,
                 "Let consumers start the programs that this file lists")
      ->type_name("FILE")
      ->check(checkFileName);
  app.add_option("--store", options->store,
                 "Keep the state and the rows in this file; memory keeps nothing")
      ->type_name("FILE")
      ->check(checkFileName);
  app.add_option("--web", options->web,
                 "Show a page on this address and port, such as 127.0.0.1:1980; port 0 is any free "
                 "one")
      ->type_name("ADDR:PORT")
      ->check(checkWebAddress);
  app.add_flag("--verbose", options->verbose, "Tell each event on standard error");
  if (const auto exitStatus = tools::complete(app, argc, argv)) return exitStatus;
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    // Asked for help or the version: not an error.
    if (error.get_exit_code() == 0) return app.exit(error);
    printLines(Priority::error, withName(error.what()) + "Try 'zordchd --help'.\n");
    return EX_USAGE;
  }
  return std::nullopt;
}

}  // namespace dch
