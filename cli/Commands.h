#pragma once
// qmload-cli is one CLI11 application; each group of subcommands registers itself
// here. A subcommand's callback stores the process exit code in exitCode.
#include <CLI/CLI.hpp>

void addToolchainCommands(CLI::App& app, int& exitCode);
void addDeviceCommands(CLI::App& app, int& exitCode);
