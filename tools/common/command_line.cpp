#include "tools/common/command_line.h"

#include <sysexits.h>

#include <algorithm>
#include <charconv>
#include <iostream>
#include <sstream>

#include "tools/common/failure.h"
#include "tools/common/printable.h"

namespace tools {
namespace {

std::string joined(const std::vector<std::string>& words, const char* separator) {
  std::string all;
  for (const std::string& each : words) all += (all.empty() ? "" : separator) + each;
  return all;
}

// The parser does not say which word is no subcommand, and names what was not expected from the
// end.
std::string reasonOf(const CLI::App& app, const CLI::ParseError& error) {
  const std::vector<std::string> rest = app.remaining(true);
  if (!rest.empty() && app.get_subcommands().empty()) {
    std::vector<std::string> known;
    for (const CLI::App* each : app.get_subcommands({})) known.push_back(each->get_name());
    return "there is no subcommand " + inQuotes(rest.front()) + ", only " + joined(known, ", ");
  }
  if (error.get_exit_code() == static_cast<int>(CLI::ExitCodes::ExtrasError))
    return "not expected: " + joined(rest, " ");
  return error.what();
}

}  // namespace

void setUpCommandLine(CLI::App& app, const std::string& footer) {
  app.set_version_flag("-V,--version", app.get_name() + " " ZORD410_VERSION,
                       "Print the version and exit");
  app.set_help_flag("-h,--help", "Print this help and exit");
  app.footer(footer);
  app.require_subcommand(1);
  app.get_formatter()->column_width(38);  // so that no option needs two lines
  app.get_formatter()->label("REQUIRED", "(required)");
}

CLI::Validator nameOfAtMost(int most) {
  return CLI::Validator(
      [most](const std::string& name) -> std::string {
        if (name.empty()) return "the name is empty";
        if (name.size() > static_cast<std::size_t>(most))
          return "'" + name + "' is longer than " + std::to_string(most) + " characters";
        return {};
      },
      "");
}

CLI::Validator positiveNumber() {
  return CLI::Validator(
      [](const std::string& text) -> std::string {
        constexpr double most = 1e9;
        double number = 0;
        const char* const end = text.data() + text.size();
        const auto [read, error] = std::from_chars(text.data(), end, number);
        if (error == std::errc() && read == end && number > 0 && number <= most) return {};
        return "'" + text + "' is not a number above 0 and up to 1000000000";
      },
      "");
}

CLI::Validator oneOf(const std::vector<std::string>& words) {
  CLI::Validator validator(
      [words](const std::string& word) -> std::string {
        if (std::find(words.begin(), words.end(), word) != words.end()) return {};
        return "'" + word + "' is none of " + joined(words, ", ");
      },
      "");
  return validator.name(joined(words, "|"));  // for completion.cpp
}

int runTool(CLI::App& app, int argc, char** argv, const std::function<int()>& run,
            const FindValues& findValues) {
  if (const auto exitStatus = complete(app, argc, argv, findValues)) return *exitStatus;
  const auto fail = [&app](int exitStatus, const std::string& message) {
    std::istringstream lines(message);
    for (std::string each; std::getline(lines, each);)
      std::cerr << app.get_name() << ": " << each << '\n';
    return exitStatus;
  };
  try {
    app.parse(argc, argv);
    return run();
  } catch (const CLI::Success& helpOrVersion) {
    return app.exit(helpOrVersion);
  } catch (const CLI::ParseError& error) {
    fail(EX_USAGE, reasonOf(app, error));
    const auto subcommands = app.get_subcommands();
    const std::string subcommand = subcommands.empty() ? "" : " " + subcommands[0]->get_name();
    std::cerr << "Try '" << app.get_name() << subcommand << " --help'.\n";
    return EX_USAGE;
  } catch (const Failure& failure) {
    return fail(failure.exitStatus(), failure.what());
  } catch (const std::exception& error) {
    return fail(EX_SOFTWARE, error.what());
  }
}

}  // namespace tools
