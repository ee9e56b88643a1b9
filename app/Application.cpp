#include "app/Application.h"

Application app;

// A DeviceSession set up for the GUI (SessionFactory.cpp).
std::unique_ptr<FlashLink> makeGuiSession(const char* portName);

namespace {
SessionFactory sessionFactory = nullptr;
} // namespace

Application::~Application() { session.reset(); }

void Application::drawCurrent() {
  if (current < screens.size()) screens[current]->draw(ctx);
}

void setSessionFactory(SessionFactory factory) { sessionFactory = factory; }

void createSession(Application& application, const char* portName) {
  application.session.reset();
  std::unique_ptr<FlashLink> fresh = sessionFactory ? sessionFactory(portName) : makeGuiSession(portName);
  // Should a session have appeared meanwhile, it is destroyed after the swap.
  std::unique_ptr<FlashLink> stale = std::move(application.session);
  application.session = std::move(fresh);
  stale.reset();
}

void releaseSession(Application& application) {
  std::unique_ptr<FlashLink> old = std::move(application.session);
  old.reset();
}
