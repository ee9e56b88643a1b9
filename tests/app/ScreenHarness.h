#pragma once
// Draws the screen in a Nuklear context without a window: a fixed-width test font
// (8 pixels a character, 14 high), input fed through nk_input_*, and what was drawn
// read back from the context's command list.
#include <string>
#include <vector>

#include "app/NuklearConfig.h"
#include "app/StartScreen.h"

struct DrawnText {
  std::string text;
  float x, y, w, h;
};

struct DrawnRect {
  nk_color color;
  float x, y, w, h;
};

class ScreenHarness {
public:
  ScreenHarness();
  ~ScreenHarness();
  ScreenHarness(const ScreenHarness&) = delete;
  ScreenHarness& operator=(const ScreenHarness&) = delete;

  // Draws one frame without input.
  void frame();
  // Draws `count` frames without input.
  void frames(int count);
  // Presses the left button on the centre of the drawn text (one frame), then
  // releases it (a second frame). Fails the test when the text is not on screen.
  void click(const std::string& text, int occurrence = 0);

  bool shows(const std::string& text) const;
  int count(const std::string& text) const;
  const DrawnText* find(const std::string& text, int occurrence = 0) const;
  const std::vector<DrawnText>& texts() const { return texts_; }
  const std::vector<DrawnRect>& filledRects() const { return rects_; }
  std::string dump() const; // every text of the last frame, for failure messages

  nk_context* ctx() { return &ctx_; }
  StartScreenSpace::StartScreen screen;

private:
  void drawWithInput(bool button, float x, float y, bool down);

  nk_user_font font_{};
  nk_context ctx_{};
  std::vector<DrawnText> texts_;
  std::vector<DrawnRect> rects_;
};
