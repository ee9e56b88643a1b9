#pragma once
// The program's start-up, shared by the window shells: takes the program path from
// the command line, sets up the one screen, lists the ports once and runs the
// shell's frame loop until the window is closed.
#include "app/Application.h"

using RunGui = void (*)(Application& application);
int appMain(int argc, char** argv, RunGui runGui);
