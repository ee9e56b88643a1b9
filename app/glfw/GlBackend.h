#pragma once
// A thin layer over Nuklear's GLFW/OpenGL 2 backend. The backend keeps its state in
// one static object inside GlBackend.cpp; this header is all the loop needs of it.
#include <cstdint>

#include "app/ButtonQueue.h"

struct GLFWwindow;
struct nk_context;

// Creates the context for the window (input callbacks are installed by the loop).
nk_context* glBackendInit(GLFWwindow* window);
// Bakes the font atlas: fontData (a TrueType file in memory) at pixelSize, or
// Nuklear's built-in font when fontData is null.
void glBackendLoadFont(const void* fontData, int fontSize, float pixelSize);
// Reads one frame of input: window size, typed characters, scroll, the cursor,
// and at most one queued left-button change.
void glBackendInput(const ButtonChange* button);
void glBackendChar(unsigned int codepoint);
void glBackendScroll(double dx, double dy);
// Clears the frame with an ARGB colour, draws the context's commands and clears
// the context for the next frame.
void glBackendRender(std::uint32_t clearArgb);
void glBackendShutdown();
