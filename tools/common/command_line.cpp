#include "tools/common/command_line.h"

#include <sysexits.h>

#include <iostream>

#include "tools/common/failure.h"

namespace tools {

void setUpCommandLine(CLI::App& app, const std::string& footer) {
  app.set_version_flag("-V,--version", app.get_name() + " " ZORD410_VERSION,
                       "Print the version and exit");
  app.set_help_flag("-h,--help", "Print this help and exit");
  app.footer(footer);
  app.require_subcommand(1);
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
    std::cerr << "Try '" << app.get_name() << " --help'.\n";
    return EX_USAGE;
  } catch (const Failure& failure) {
    return fail(failure.exitStatus(), failure.what());
  } catch (const std::exception& error) {
    return fail(EX_SOFTWARE, error.what());
  }
}

}  // namespace tools
