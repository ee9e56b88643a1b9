#include <unistd.h>

#include "cli/Progress.h"

bool stderrIsTerminal() { return isatty(STDERR_FILENO) == 1; }
