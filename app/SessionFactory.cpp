// The device session the GUI opens: gap framing (a reply ends after 100 ms of
// silence) and a wake-up of the frame loop whenever the flags change.
#include <memory>

#include "app/GuiState.h"
#include "device/DeviceSession.h"

std::unique_ptr<FlashLink> makeGuiSession(const char* portName) {
  auto session = std::make_unique<DeviceSession>(portName);
  session->setFraming(ReplyFraming::gap);
  session->setWakeCallback(wakeGui);
  return session;
}
