#include "ScreenHarness.h"

#include <gtest/gtest.h>

#include "app/GuiStyle.h"

namespace {

float fixedWidth(nk_handle, float, const char*, int len) { return static_cast<float>(len) * 8.0f; }

} // namespace

ScreenHarness::ScreenHarness() {
  font_.userdata = nk_handle_ptr(nullptr);
  font_.height = 14.0f;
  font_.width = fixedWidth;
  nk_init_default(&ctx_, &font_);
  applyGuiStyle(&ctx_);
}

ScreenHarness::~ScreenHarness() { nk_free(&ctx_); }

void ScreenHarness::drawWithInput(bool button, float x, float y, bool down) {
  nk_input_begin(&ctx_);
  if (button) {
    nk_input_motion(&ctx_, static_cast<int>(x), static_cast<int>(y));
    nk_input_button(&ctx_, NK_BUTTON_LEFT, static_cast<int>(x), static_cast<int>(y), down);
  }
  nk_input_end(&ctx_);

  screen.draw(&ctx_);

  texts_.clear();
  rects_.clear();
  const nk_command* cmd = nullptr;
  nk_foreach(cmd, &ctx_) {
    if (cmd->type == NK_COMMAND_TEXT) {
      const auto* t = reinterpret_cast<const nk_command_text*>(cmd);
      texts_.push_back({std::string(t->string, static_cast<std::size_t>(t->length)), static_cast<float>(t->x),
                        static_cast<float>(t->y), static_cast<float>(t->w), static_cast<float>(t->h)});
    } else if (cmd->type == NK_COMMAND_RECT_FILLED) {
      const auto* r = reinterpret_cast<const nk_command_rect_filled*>(cmd);
      rects_.push_back({r->color, static_cast<float>(r->x), static_cast<float>(r->y), static_cast<float>(r->w),
                        static_cast<float>(r->h)});
    }
  }
  nk_clear(&ctx_);
}

void ScreenHarness::frame() { drawWithInput(false, 0, 0, false); }

void ScreenHarness::frames(int count) {
  for (int i = 0; i < count; ++i) frame();
}

void ScreenHarness::click(const std::string& text, int occurrence) {
  const DrawnText* t = find(text, occurrence);
  ASSERT_NE(t, nullptr) << "\"" << text << "\" is not on screen; drawn: " << dump();
  const float x = t->x + t->w / 2;
  const float y = t->y + t->h / 2;
  drawWithInput(true, x, y, true);
  drawWithInput(true, x, y, false);
}

const DrawnText* ScreenHarness::find(const std::string& text, int occurrence) const {
  for (const auto& t : texts_)
    if (t.text == text && occurrence-- == 0) return &t;
  return nullptr;
}

bool ScreenHarness::shows(const std::string& text) const { return find(text) != nullptr; }

int ScreenHarness::count(const std::string& text) const {
  int n = 0;
  for (const auto& t : texts_) n += t.text == text;
  return n;
}

std::string ScreenHarness::dump() const {
  std::string out;
  for (const auto& t : texts_) out += "[" + t.text + "]";
  return out;
}
