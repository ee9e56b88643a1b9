#pragma once
// The Windows window and frame loop.
#include <windows.h>

#include "app/Application.h"

// Creates the window, runs the frame loop until the window is closed, then releases
// the device session, the font, the renderer and the window class.
void runGui(Application& application);

// The window procedure: WM_USER only wakes the loop, WM_DROPFILES sets the program
// path, WM_DESTROY ends the loop; resizing and painting go to the renderer, the
// keyboard and the mouse to the input, and what neither takes to Windows.
LRESULT CALLBACK windowProc(HWND hwnd, UINT message, WPARAM wParam, LPARAM lParam);

// Passes every dropped file name to setProgramPath in order, so the last one wins,
// and releases the drop handle.
void handleDropFiles(HDROP drop);

// Where the window goes on a screen of screenWidth by screenHeight: the client
// width is subtracted by half, the client height in full, so the window sits
// above the centre line.
POINT windowPosition(int screenWidth, int screenHeight);
