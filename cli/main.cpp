// qmload-cli: the toolchain jobs and the device jobs of qmload without a window.
#include "cli/Commands.h"

int main(int argc, char** argv) {
  CLI::App app{"qmload-cli: build AELF images, rewrite linker scripts and flash devices", "qmload-cli"};
  app.set_version_flag("--version", "qmload-cli 1.0.0");
  app.require_subcommand(1);

  ExitCode exitCode = ExitOk;
  addToolchainCommands(app, exitCode);
  addDeviceCommands(app, exitCode);

  try {
    app.parse(argc, argv);
  } catch (const CLI::Success& e) {
    return app.exit(e); // --help and --version
  } catch (const CLI::ParseError& e) {
    app.exit(e);
    return ExitUsage; // every usage error, whatever CLI11's own code for it
  }
  return exitCode;
}
