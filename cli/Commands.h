#pragma once
// qmload-cli is one CLI11 application; each group of subcommands registers itself
// here. A subcommand's callback stores the process exit code in exitCode.
#include <CLI/CLI.hpp>

#include "cli/ExitCode.h"

void addToolchainCommands(CLI::App& app, ExitCode& exitCode);
void addDeviceCommands(CLI::App& app, ExitCode& exitCode);
