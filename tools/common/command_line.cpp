#include "tools/common/command_line.h"

#include <sysexits.h>

#include <algorithm>
#include <charconv>
#include <iostream>

#include "tools/common/failure.h"

namespace tools {

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
  return CLI::Validator(
      [words](const std::string& word) -> std::string {
        if (std::find(words.begin(), words.end(), word) != words.end()) return {};
        std::string all;
        for (const std::string& each : words) all += (all.empty() ? "" : ", ") + each;
        return "'" + word + "' is none of " + all;
      },
      "");
}

int runTool(CLI::App& app, int argc, char** argv, const std::function<int()>& run) {
  const auto fail = [&app](int exitStatus, const char* message) {
    std::cerr << app.get_name() << ": " << message << '\n';
    return exitStatus;
  };
  try {
    app.parse(argc, argv);
    return run();
  } catch (const CLI::Success& helpOrVersion) {
    return app.exit(helpOrVersion);
  } catch (const CLI::ParseError& error) {
    fail(EX_USAGE, error.what());
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
