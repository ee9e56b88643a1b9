#pragma once
// The colours both window shells give Nuklear: the 28-entry style table and the
// colour every frame is cleared with.
#include <cstdint>

struct nk_context;

// Opaque, red = green = blue = 30.
constexpr std::uint32_t guiClearColor = 0xFF1E1E1Eu;

// Installs the table, in Nuklear's colour order, as the context's style.
void applyGuiStyle(nk_context* ctx);
