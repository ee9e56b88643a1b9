// qmload for Windows: the shared start-up with the Win32 window shell.
#include "app/AppMain.h"
#include "app/win32/Win32Gui.h"

int main(int argc, char** argv) { return appMain(argc, argv, runGui); }
