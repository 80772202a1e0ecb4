// zordc: acts as a data consumer on the command line.
#include "tools/action_command.h"
#include "tools/catalogue_command.h"
#include "tools/common/command_line.h"
#include "tools/completion_values.h"
#include "tools/history_command.h"
#include "tools/status_command.h"
#include "tools/watch_command.h"
#include "zordchcl/zordchcl.h"

namespace {

constexpr char footer[] =
    "Examples:\n"
    "  zordc apps\n"
    "  zordc watch HOSTMON load\n"
    "\n"
    "The DCH is found through ZORA_DCH_ADDR (local host) and ZORA_DCH_PORT (1919).\n"
    "\n"
    "Exit status: 0 done, when a signal ends watch or status, or when nobody reads the output any\n"
    "more, 1 an action's result is not 0, 64 wrong command line, 65 no token in its file, 66 the\n"
    "DCH knows no such thing, 69 the DCH cannot be reached, 70 no memory, 71 no descriptor is\n"
    "left, 74 the output cannot be written, 75 a wait ran out, 76 a wait for status failed or an\n"
    "answer of its page was cut short, 77 its page wants a token.";

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
    "While nothing is sent, or the DCH does not answer, the wait goes on until Ctrl-C, or until\n"
    "--timeout ends it. A DCH that has started anew is subscribed to again; rows that it passes "
    "on\n"
    "before that are missed. The exit statuses are in zordc --help.";

constexpr char historyFooter[] =
    "Examples:\n"
    "  zordc history HOSTMON load --since -60m\n"
    "  zordc history HOSTMON load --source hostA --format csv > rows.csv\n"
    "\n"
    "The rows come from the page of zordchd (--web), which has to keep them in a file, the oldest\n"
    "first. T is a time such as 2026-01-31T23:59:59Z, seconds since 1970, or -90s, -15m, -24h, "
    "-7d\n"
    "before now; --since and --until themselves are in the range.\n"
    "\n"
    "table is for people: time, source and attributes. csv and jsonl have the columns time, "
    "time_us\n"
    "(microseconds since 1970), source, handle, code and the attributes; jsonl has an object per "
    "line:\n"
    "  {\"time\":\"2026-01-31T23:59:59.123456Z\",\"time_us\":1769903999123456,...,\"load1\":17}\n"
    "An answer that is cut short ends with 76; what came before is printed, whole rows only. The\n"
    "server gives up a reader that takes nothing for 30 s, such as a pager: use a file. Ctrl-C "
    "ends "
    "it.";

constexpr char appsFooter[] =
    "Examples:\n"
    "  zordc apps\n"
    "  zordc apps HOSTMON --format jsonl";

constexpr char attrsFooter[] =
    "Example:\n"
    "  zordc attrs HOSTMON --format csv";

constexpr char helpFooter[] =
    "Example:\n"
    "  zordc help HOSTMON";

constexpr char statusFooter[] =
    "Example:\n"
    "  zordc status --format jsonl\n"
    "\n"
    "First every source that is on line is told of, then every change. Group and source are empty\n"
    "where an application as a whole is meant. A DCH that has started anew is subscribed to "
    "again;\n"
    "a source that has not come back to it is not told of.";

constexpr char actFooter[] =
    "Example:\n"
    "  zordc act restart --node hostA --subnode hostA:HMN00 --owner me --wait\n"
    "\n"
    "The action's ID is printed, and with --wait its result; the DCH's answer for an action that "
    "it\n"
    "does not have is 106. Everyone on this machine can see --parms in the list of processes.";

constexpr char deferFooter[] =
    "Example:\n"
    "  zordc defer --id 42 --key HMN --table LOAD --source hostA";

using Run = std::function<int()>;

CLI::Option* addApplication(CLI::App* command, std::string* appl) {
  return command->add_option("APPL", *appl, "Name of the application")
      ->type_name("")
      ->check(tools::nameOfAtMost(DCH_MAX_APPL_NAME));
}

void addGroup(CLI::App* command, std::string* group) {
  command->add_option("GROUP", *group, "Attribute group")
      ->required()
      ->type_name("")
      ->check(tools::nameOfAtMost(DCH_MAX_ATTR_GROUP));
}

void addFormat(CLI::App* command, std::string* format) {
  command->add_option("-F,--format", *format, "Format: table (the default), csv or jsonl")
      ->type_name("FORMAT")
      ->check(tools::oneOf({"table", "csv", "jsonl"}));
}

template <class Count>
void addCount(CLI::App* command, Count* count, const char* description) {
  command->add_option("-C,--count", *count, description)
      ->type_name("N")
      ->check(tools::positiveNumber());
}

// Adds a subcommand that makes `run` the job of the tool.
CLI::App* addCommand(CLI::App* app, const char* name, const char* description,
                     const char* footerText, Run* job, const Run& run) {
  CLI::App* const command = app->add_subcommand(name, description);
  command->footer(footerText);
  command->callback([job, run] { *job = run; });
  return command;
}

void addWatch(CLI::App* app, tools::WatchOptions* options, Run* job) {
  CLI::App* const watch = addCommand(app, "watch", "Print every row of an attribute group",
                                     watchFooter, job, [=] { return tools::watch(*options); });
  addApplication(watch, &options->appl)->required();
  addGroup(watch, &options->group);
  addFormat(watch, &options->format);
  addCount(watch, &options->count, "End after N rows");
  watch->add_option("-W,--timeout", options->timeoutSeconds, "End when no row came for S seconds")
      ->type_name("S")
      ->check(tools::positiveNumber());
}

void addHistory(CLI::App* app, tools::HistoryOptions* options, Run* job) {
  CLI::App* const history =
      addCommand(app, "history", "Print the rows that were kept", historyFooter, job,
                 [=] { return tools::history(*options); });
  addApplication(history, &options->appl)->required();
  addGroup(history, &options->group);
  history->add_option("-s,--source", options->source, "Of this source only")
      ->type_name("NAME")
      ->check(tools::nameOfAtMost(DCH_MAX_SOURCE_NAME));
  history->add_option("--since", options->since, "From this time on")->type_name("T");
  history->add_option("--until", options->until, "Up to this time")->type_name("T");
  addFormat(history, &options->format);
  history->add_option("--web", options->web, "Page of the server (" + options->web + ")")
      ->type_name("URL");
  history->add_option("--token-file", options->tokenPath, "File with the token that the page wants")
      ->type_name("FILE");
}

void addCatalogue(CLI::App* app, tools::CatalogueOptions* options, Run* job) {
  CLI::App* const apps =
      addCommand(app, "apps", "List the applications, or one of them", appsFooter, job,
                 [=] { return tools::showApplications(*options); });
  addApplication(apps, &options->appl);
  addFormat(apps, &options->format);
  CLI::App* const attrs =
      addCommand(app, "attrs", "List the attributes of an application", attrsFooter, job,
                 [=] { return tools::showAttributes(*options); });
  addApplication(attrs, &options->appl)->required();
  addFormat(attrs, &options->format);
  CLI::App* const help = addCommand(app, "help", "Print the help text of an application",
                                    helpFooter, job, [=] { return tools::showHelp(*options); });
  addApplication(help, &options->appl)->required();
  for (CLI::App* const command : {apps, attrs, help})
    command->add_option("-W,--timeout", options->waitSeconds, "Wait S seconds for the answer (30)")
        ->type_name("S")
        ->check(CLI::Range(1, 32767));
}

void addStatus(CLI::App* app, tools::StatusOptions* options, Run* job) {
  CLI::App* const status =
      addCommand(app, "status", "Print every change of provider status", statusFooter, job,
                 [=] { return tools::followStatus(*options); });
  addFormat(status, &options->format);
  addCount(status, &options->count, "End after N changes");
}

void addAct(CLI::App* app, tools::ActionOptions* options, Run* job) {
  CLI::App* const act = addCommand(app, "act", "Ask for an action", actFooter, job,
                                   [=] { return tools::act(*options); });
  act->add_option("NAME", options->name, "Name of the action")->required()->type_name("");
  act->add_option("--node", options->node, "Node to act on")->required()->type_name("N");
  act->add_option("--subnode", options->subnode, "Subnode to act on")->required()->type_name("S");
  act->add_option("--owner", options->owner, "Who asks")->required()->type_name("O");
  act->add_option("--type", options->type, "Type of the action (0)")
      ->type_name("T")
      ->check(CLI::Range(-32768, 32767));
  act->add_option("--parms", options->parms, "Parameters")->type_name("TEXT");
  act->add_option("--id", options->id, "ID of the action (made up)")->type_name("N");
  act->add_flag("--wait", options->waits, "Wait for the result and print it");
}

void addDefer(CLI::App* app, tools::DeferralOptions* options, Run* job) {
  CLI::App* const defer = addCommand(app, "defer", "Ask for the deferral of a report request",
                                     deferFooter, job, [=] { return tools::defer(*options); });
  defer->add_option("--id", options->actionId, "ID of the action")->required()->type_name("N");
  defer->add_option("--key", options->applKey, "Application key")->required()->type_name("KEY");
  defer->add_option("--table", options->table, "Table")->required()->type_name("TABLE");
  defer->add_option("--source", options->source, "Source")->required()->type_name("NAME");
  defer->add_option("--time", options->time, "Seconds since 1970 (now)")->type_name("N");
  defer->add_option("--object", options->object, "Reference that is passed on (0)")->type_name("N");
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app("Shows what the DCH has, and asks it for actions.", "zordc");
  tools::setUpCommandLine(app, footer);
  Run job;
  tools::WatchOptions watchOptions;
  tools::HistoryOptions historyOptions;
  tools::CatalogueOptions catalogueOptions;
  tools::StatusOptions statusOptions;
  tools::ActionOptions actionOptions;
  tools::DeferralOptions deferralOptions;
  addWatch(&app, &watchOptions, &job);
  addHistory(&app, &historyOptions, &job);
  addCatalogue(&app, &catalogueOptions, &job);
  addStatus(&app, &statusOptions, &job);
  addAct(&app, &actionOptions, &job);
  addDefer(&app, &deferralOptions, &job);
  return tools::runTool(
      app, argc, argv, [&] { return job(); }, tools::consumerValues);
}
