// zordc: acts as a data consumer on the command line.
#include "tools/common/command_line.h"
#include "tools/watch_command.h"
#include "zordchcl/zordchcl.h"

namespace {

constexpr char footer[] =
    "Example:\n"
    "  zordc watch HOSTMON load\n"
    "\n"
    "The DCH is found through ZORA_DCH_ADDR (local host) and ZORA_DCH_PORT (1919).\n"
    "\n"
    "Exit status: 0 after --count rows, a signal, or when nobody reads the output any more, 64 "
    "wrong\n"
    "command line, 69 the DCH cannot be reached, 74 the output cannot be written, 75 no row came "
    "for\n"
    "--timeout seconds.";

constexpr char watchFooter[] =
    "Examples:\n"
    "  zordc watch HOSTMON load\n"
    "  zordc watch HOSTMON network --format jsonl --count 10 --timeout 60 | jq .values\n"
    "\n"
    "table is for people: it escapes control characters. csv begins with a line that names its\n"
    "columns, time, handle and the attributes; when the attributes change, an empty line and "
    "another\n"
    "such line follow. jsonl has an object per line:\n"
    "  {\"time\": \"2026-01-31T23:59:59.123Z\", \"handle\": 1, \"values\": {\"load1\": 17}}\n"
    "The time is that of arrival, in UTC; the handle tells the sources of a group apart. Values "
    "that\n"
    "are neither text nor a number of 1, 2, 4 or 8 bytes are shown as 0x and hexadecimal digits.\n"
    "\n"
    "A subscription has no answer: without a DCH, or while nothing is sent, the wait goes on "
    "until\n"
    "Ctrl-C, or until --timeout ends it. The exit statuses are in zordc --help.";

}  // namespace

int main(int argc, char** argv) {
  CLI::App app("Shows the rows of data that come to the DCH.", "zordc");
  tools::setUpCommandLine(app, footer);

  tools::WatchOptions options;
  CLI::App* watch = app.add_subcommand("watch", "Print every row of an attribute group");
  watch->footer(watchFooter);
  watch->add_option("APPL", options.appl, "Name of the application")
      ->required()
      ->type_name("")
      ->check(tools::nameOfAtMost(DCH_MAX_APPL_NAME));
  watch->add_option("GROUP", options.group, "Attribute group")
      ->required()
      ->type_name("")
      ->check(tools::nameOfAtMost(DCH_MAX_ATTR_GROUP));
  watch
      ->add_option("-F,--format", options.format,
                   "Format of the rows: table (the default), csv or jsonl")
      ->type_name("FORMAT")
      ->check(tools::oneOf({"table", "csv", "jsonl"}));
  watch->add_option("-C,--count", options.count, "End after N rows")
      ->type_name("N")
      ->check(tools::positiveNumber());
  watch->add_option("-W,--timeout", options.timeoutSeconds, "End when no row came for S seconds")
      ->type_name("S")
      ->check(tools::positiveNumber());

  return tools::runTool(app, argc, argv, [&] { return tools::watch(options); });
}
