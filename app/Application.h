#pragma once
// The application object: the GUI context, the screens, which one is drawn, and
// the open device session.
#include <cstdint>
#include <memory>
#include <vector>

#include "device/FlashLink.h"

struct nk_context;

// A screen of the window. Screens are never destroyed through this interface.
class IScreen {
public:
  virtual void init(nk_context* ctx) = 0;
  virtual int draw(nk_context* ctx) = 0;
};

struct Application {
  nk_context* ctx = nullptr;
  std::vector<IScreen*> screens; // not owned
  std::uint32_t current = 0;
  // The device session of the port opened last, or null.
  std::unique_ptr<FlashLink> session;

  ~Application();
  // Draws the current screen, if there is one.
  void drawCurrent();
};

extern Application app;

// Replaces the session by a new one on portName; the old one is destroyed first so
// that the same port can be opened again.
void createSession(Application& application, const char* portName);
// Destroys the session, if any.
void releaseSession(Application& application);

// How createSession makes a session; null means a real DeviceSession on the port.
// Tests install a factory that returns a scripted link.
using SessionFactory = std::unique_ptr<FlashLink> (*)(const char* portName);
void setSessionFactory(SessionFactory factory);
