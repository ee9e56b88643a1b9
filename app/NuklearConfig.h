#pragma once
// The one place that chooses Nuklear's compile-time options. Every file that uses
// Nuklear includes this header instead of nuklear.h, so the declarations and the
// implementation (nuklear_impl.cpp) always agree.
//
// The OpenGL 2 backend converts the command list to vertices and bakes the default
// font into a texture, so it needs VERTEX_BUFFER_OUTPUT, FONT_BAKING and
// DEFAULT_FONT; the GDI+ renderer draws the command list with its own user font
// and simply does not use them.
#define NK_INCLUDE_FIXED_TYPES
#define NK_INCLUDE_DEFAULT_ALLOCATOR
#define NK_INCLUDE_VERTEX_BUFFER_OUTPUT
#define NK_INCLUDE_FONT_BAKING
#define NK_INCLUDE_DEFAULT_FONT
#include "nuklear.h"
