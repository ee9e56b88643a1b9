// Nuklear's implementation, compiled once for the whole program (as C++).
#define NK_IMPLEMENTATION
#include "app/NuklearConfig.h"
