// zordp: acts as a data provider on the command line.
#include "tools/common/command_line.h"
#include "tools/completion_values.h"
#include "tools/run/run_command.h"
#include "tools/send_command.h"
#include "zordchcl/zordchcl.h"

namespace {

constexpr char footer[] =
    "Example:\n"
    "  zordp send -r demo.reg -g load -s $(hostname) -i demo.csv\n"
    "  zordp run machine.toml\n"
    "\n"
    "The DCH is found through ZORA_DCH_ADDR (local host) and ZORA_DCH_PORT (1919), and is waited "
    "for\n"
    "ZORA_DCH_TIMEOUT seconds (30).\n"
    "\n"
    "Exit status: 0 every row was sent, 64 wrong command line, 65 bad input, 66 a file cannot be\n"
    "read, 69 the DCH does not answer at the start or at the end, 70 no memory, 71 no descriptor\n"
    "is left, 76 the DCH refused a request (its status is in the message), 128 and the signal's\n"
    "number when a signal ended it.";

constexpr char sendFooter[] =
    "Example:\n"
    "  demo.reg:  appl:DEMO,DMO; group:load; attr:load1,G,4; attr:note,T,20;\n"
    "  demo.csv:  load1,note\n"
    "             17,all quiet\n"
    "             25,\n"
    "  zordp send -r demo.reg -g load -s $(hostname) -i demo.csv\n"
    "\n"
    "csv: the first line names the attributes. An empty column is left out of its row, \"\" is an\n"
    "empty text. jsonl: an object per line, {\"load1\": 17, \"note\": \"all quiet\"}; null is left "
    "out.\n"
    "Letters A C G L N are whole numbers of size 2, 4 or 8, I S of size 2; D R T are texts, whose\n"
    "size counts a terminating zero. A row that cannot be sent whole ends the input with exit "
    "status\n"
    "65; the rows before it are sent.\n"
    "\n"
    "At the end the source goes off line and the application is unregistered. With --keep it "
    "stays\n"
    "registered, as it should when other sources of it are on line; the source still goes off "
    "line,\n"
    "for nobody feeds it any more.\n"
    "\n"
    "A DCH that does not answer once rows are sent is asked again and again, and one that has "
    "started\n"
    "anew is told of the source again; no row is left out. A row whose answer got lost is sent "
    "twice.\n"
    "\n"
    "The exit statuses are in zordp --help.";

constexpr char runFooter[] =
    "Example:\n"
    "  registration = \"appl:MACHINE,MCH; group:disks; attr:mount,D,256; attr:used,G,8;\"\n"
    "\n"
    "  [[rows]]                   # one for each group and source\n"
    "  group = \"disks\"\n"
    "  command = \"df --output=target,used | tail -n +2\"\n"
    "  every = 10                 # seconds; without it the command runs all the time\n"
    "  format = \"words\"           # csv (when it is left out), jsonl, or columns between blanks\n"
    "  columns = [\"mount\", \"used\"]\n"
    "\n"
    "  source = \"web1\"            # when left out: the name of this machine\n"
    "  timeout = 5                # seconds for a run, or for a line of a command without every\n"
    "\n"
    "A line that is no row is left out, and a command that fails is said. One that runs all the\n"
    "time is started anew, after 1 s, 2 s and so on up to 60 s. A DCH that does not answer is\n"
    "waited for; no row is left out. At SIGINT, SIGTERM and SIGHUP the commands are ended, what\n"
    "they print from then on is not sent, the sources go off line, and without --keep the\n"
    "application is unregistered. As a service it tells systemd when it is ready.\n"
    "\n"
    "The exit statuses are in zordp --help.";

// Each adds a command with its options.

void addSend(CLI::App& app, tools::SendOptions& options) {
  CLI::App* send = app.add_subcommand("send", "Register an application and send rows of one group");
  send->footer(sendFooter);
  send->add_option("-r,--registration", options.registrationPath,
                   "File with the text that registers the application")
      ->required()
      ->type_name("FILE");
  send->add_option("-g,--group", options.group, "Attribute group of the rows")
      ->required()
      ->type_name("GROUP")
      ->check(tools::nameOfAtMost(DCH_MAX_ATTR_GROUP));
  send->add_option("-s,--source", options.source, "Name of the source")
      ->required()
      ->type_name("NAME")
      ->check(tools::nameOfAtMost(DCH_MAX_SOURCE_NAME));
  send->add_option("-i,--input", options.inputPath,
                   "File with the rows; standard input when it is - or left out")
      ->type_name("FILE");
  send->add_option("-F,--format", options.format, "Format of the rows: csv (the default) or jsonl")
      ->type_name("FORMAT")
      ->check(tools::oneOf({"csv", "jsonl"}));
  send->add_flag("-k,--keep", options.keep, "Leave the application registered");
}

CLI::App* addRun(CLI::App& app, tools::RunOptions& options) {
  CLI::App* run = app.add_subcommand("run", "Register an application and send what commands print");
  run->footer(runFooter);
  run->add_option("FILE", options.path, "File that names the commands, in TOML")
      ->required()
      ->type_name("");
  run->add_flag("-k,--keep", options.keep, "Leave the application registered");
  return run;
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app("Sends rows of data to the DCH.", "zordp");
  tools::setUpCommandLine(app, footer);

  tools::SendOptions sendOptions;
  addSend(app, sendOptions);
  tools::RunOptions runOptions;
  const CLI::App* const run = addRun(app, runOptions);

  return tools::runTool(
      app, argc, argv,
      [&] { return run->parsed() ? tools::run(runOptions) : tools::send(sendOptions); },
      tools::providerValues);
}
