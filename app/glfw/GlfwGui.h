#pragma once
#include "app/Application.h"

// Creates the window, runs the frame loop until the window is closed, then releases
// the device session and the GUI resources.
void runGui(Application& application);
