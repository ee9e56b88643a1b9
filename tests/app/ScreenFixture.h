#pragma once
// Puts the process-wide GUI state back to its start values around each test and
// routes createSession and refreshPortList to test doubles.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "FakeLink.h"
#include "ScreenHarness.h"
#include "app/Application.h"
#include "app/FlashScreen.h"
#include "app/GuiState.h"

extern std::vector<std::string> testPorts;

class ScreenTest : public ::testing::Test {
protected:
  void SetUp() override;
  void TearDown() override;

  // Opens the first test port and lets the fake answer discovery with this identity.
  void openAndDiscover(std::uint32_t id0 = 0x00c0ffee, std::uint32_t id1 = 0x12345678, std::uint32_t id2 = 0x9abcdef0);
  FakeLink& link() { return *lastFakeLink; }
  int mode() const { return h->screen.mode; }

  std::unique_ptr<ScreenHarness> h;
};
