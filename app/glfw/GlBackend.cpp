// Compiles Nuklear's GLFW/OpenGL 2 backend (as C++) and adds our own frame input:
// the stock input routine samples the mouse button once per frame, which loses
// clicks whose press and release arrive together; ours takes queued changes.
#include "app/glfw/GlBackend.h"

#include <cstdlib>
#include <cstring>

#include "app/NuklearConfig.h"

// The backend uses these helpers, which nuklear.h defines only in its own
// implementation part.
#define NK_MEMSET std::memset
#define NK_MEMCPY std::memcpy
#define NK_GLFW_GL2_IMPLEMENTATION
#include "nuklear_glfw_gl2.h"

nk_context* glBackendInit(GLFWwindow* window) { return nk_glfw3_init(window, NK_GLFW3_DEFAULT); }

void glBackendLoadFont(const void* fontData, int fontSize, float pixelSize) {
  nk_font_atlas* atlas = nullptr;
  nk_glfw3_font_stash_begin(&atlas);
  nk_font* font = nullptr;
  if (fontData)
    font = nk_font_atlas_add_from_memory(atlas, const_cast<void*>(fontData), static_cast<nk_size>(fontSize), pixelSize,
                                         nullptr);
  if (!font) font = nk_font_atlas_add_default(atlas, pixelSize, nullptr);
  nk_glfw3_font_stash_end();
  nk_style_set_font(&glfw.ctx, &font->handle);
}

void glBackendChar(unsigned int codepoint) { nk_glfw3_char_callback(glfw.win, codepoint); }

void glBackendScroll(double dx, double dy) { nk_gflw3_scroll_callback(glfw.win, dx, dy); }

void glBackendInput(const ButtonChange* button) {
  nk_context* ctx = &glfw.ctx;
  GLFWwindow* win = glfw.win;
  glfwGetWindowSize(win, &glfw.width, &glfw.height);
  glfwGetFramebufferSize(win, &glfw.display_width, &glfw.display_height);
  glfw.fb_scale.x = glfw.width > 0 ? static_cast<float>(glfw.display_width) / static_cast<float>(glfw.width) : 1.0f;
  glfw.fb_scale.y = glfw.height > 0 ? static_cast<float>(glfw.display_height) / static_cast<float>(glfw.height) : 1.0f;

  nk_input_begin(ctx);
  for (int i = 0; i < glfw.text_len; ++i) nk_input_unicode(ctx, glfw.text[i]);
  double x = 0, y = 0;
  glfwGetCursorPos(win, &x, &y);
  if (button) {
    // The change is judged where it happened, not where the cursor is now.
    nk_input_motion(ctx, button->x, button->y);
    nk_input_button(ctx, button->button, button->x, button->y, button->down);
  } else {
    nk_input_motion(ctx, static_cast<int>(x), static_cast<int>(y));
  }
  nk_input_scroll(ctx, glfw.scroll);
  nk_input_end(ctx);
  glfw.text_len = 0;
  glfw.scroll = nk_vec2(0, 0);
}

void glBackendRender(std::uint32_t clearArgb) {
  const float r = static_cast<float>((clearArgb >> 16) & 0xFF) / 255.0f;
  const float g = static_cast<float>((clearArgb >> 8) & 0xFF) / 255.0f;
  const float b = static_cast<float>(clearArgb & 0xFF) / 255.0f;
  const float a = static_cast<float>((clearArgb >> 24) & 0xFF) / 255.0f;
  glViewport(0, 0, glfw.display_width, glfw.display_height);
  glClearColor(r, g, b, a);
  glClear(GL_COLOR_BUFFER_BIT);
  nk_glfw3_render(NK_ANTI_ALIASING_ON);
}

void glBackendShutdown() { nk_glfw3_shutdown(); }
