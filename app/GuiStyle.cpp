#include "app/GuiStyle.h"

#include "app/NuklearConfig.h"

static_assert(NK_COLOR_COUNT == 28, "Nuklear's colour table has another size");

namespace {
const nk_color colorTable[NK_COLOR_COUNT] = {
    /* TEXT */ {190, 190, 190, 255},
    /* WINDOW */ {30, 33, 40, 215},
    /* HEADER */ {181, 45, 69, 220},
    /* BORDER */ {51, 55, 67, 255},
    /* BUTTON */ {181, 45, 69, 255},
    /* BUTTON_HOVER */ {190, 50, 70, 255},
    /* BUTTON_ACTIVE */ {195, 55, 75, 255},
    /* TOGGLE */ {51, 55, 67, 255},
    /* TOGGLE_HOVER */ {45, 60, 60, 255},
    /* TOGGLE_CURSOR */ {181, 45, 69, 255},
    /* SELECT */ {51, 55, 67, 255},
    /* SELECT_ACTIVE */ {181, 45, 69, 255},
    /* SLIDER */ {51, 55, 67, 255},
    /* SLIDER_CURSOR */ {181, 45, 69, 255},
    /* SLIDER_CURSOR_HOVER */ {186, 50, 74, 255},
    /* SLIDER_CURSOR_ACTIVE */ {191, 55, 79, 255},
    /* PROPERTY */ {51, 55, 67, 255},
    /* EDIT */ {51, 55, 67, 225},
    /* EDIT_CURSOR */ {190, 190, 190, 255},
    /* COMBO */ {51, 55, 67, 255},
    /* CHART */ {51, 55, 67, 255},
    /* CHART_COLOR */ {170, 40, 60, 255},
    /* CHART_COLOR_HIGHLIGHT */ {255, 0, 0, 255},
    /* SCROLLBAR */ {30, 33, 40, 255},
    /* SCROLLBAR_CURSOR */ {64, 84, 95, 255},
    /* SCROLLBAR_CURSOR_HOVER */ {70, 90, 100, 255},
    /* SCROLLBAR_CURSOR_ACTIVE */ {75, 95, 105, 255},
    /* TAB_HEADER */ {181, 45, 69, 220},
};
} // namespace

void applyGuiStyle(nk_context* ctx) { nk_style_from_table(ctx, colorTable); }
