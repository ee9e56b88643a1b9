// qmload for Linux: the shared start-up with the GLFW window shell.
#include "app/AppMain.h"
#include "app/glfw/GlfwGui.h"

int main(int argc, char** argv) { return appMain(argc, argv, runGui); }
