// qmload-cli: the toolchain jobs and the device jobs of qmload without a window.
#include <cstdio>
#include <exception>

#include "base/Version.h"
#include "cli/Commands.h"

namespace {

int run(int argc, char** argv) {
  CLI::App app{"qmload-cli: build AELF images, rewrite linker scripts and flash devices", "qmload-cli"};
  app.set_version_flag("--version", "qmload-cli " QMLOAD_VERSION);
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

} // namespace

int main(int argc, char** argv) {
  // The jobs report their failures as results; this is the last guard of a
  // script's exit code against what no job expected (out of memory, say).
  try {
    return run(argc, argv);
  } catch (const std::exception& e) {
    std::fprintf(stderr, "qmload-cli: %s\n", e.what());
  } catch (...) {
    std::fprintf(stderr, "qmload-cli: unexpected failure\n");
  }
  return ExitFailed;
}
