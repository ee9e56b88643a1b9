#pragma once
// The exit codes of qmload-cli, as the README documents them.
enum ExitCode : int {
  ExitOk = 0,
  ExitFailed = 1, // a device error (not found, no response, refused block, port lost) or a failed toolchain job
  ExitUsage = 2,
  ExitImage = 3,       // flash: the image cannot be read
  ExitSomeMissing = 3, // rewrite-ld: the script was written, but some entries were not found
  ExitInterrupted = 130,
};
