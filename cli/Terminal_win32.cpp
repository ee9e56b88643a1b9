#include <io.h>
#include <stdio.h>

#include "cli/Progress.h"

bool stderrIsTerminal() { return _isatty(_fileno(stderr)) != 0; }
