// Drops files on an X window the way a file manager does (the XDND protocol,
// version 5, offering text/uri-list). Usage: gui_drop_files WINDOW_ID X Y PATH...
// X and Y are the drop point in the window's coordinates. Exits 0 once the window
// has reported the drop finished.
#include <X11/Xatom.h>
#include <X11/Xlib.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <string>

namespace {

Display* display = nullptr;
Window source = 0, target = 0;

Atom atom(const char* name) { return XInternAtom(display, name, False); }

void sendToTarget(const char* type, long l1, long l2, long l3, long l4) {
  XEvent event{};
  event.xclient.type = ClientMessage;
  event.xclient.window = target;
  event.xclient.message_type = atom(type);
  event.xclient.format = 32;
  event.xclient.data.l[0] = static_cast<long>(source);
  event.xclient.data.l[1] = l1;
  event.xclient.data.l[2] = l2;
  event.xclient.data.l[3] = l3;
  event.xclient.data.l[4] = l4;
  XSendEvent(display, target, False, NoEventMask, &event);
  XFlush(display);
}

// Serves the selection requests of the drop target until a client message of
// `type` arrives; false after five seconds.
bool serveUntil(const char* type, const std::string& uriList) {
  const Atom wanted = atom(type);
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(5);
  while (std::chrono::steady_clock::now() < end) {
    while (XPending(display)) {
      XEvent event;
      XNextEvent(display, &event);
      if (event.type == ClientMessage && event.xclient.message_type == wanted) return true;
      if (event.type == SelectionRequest) {
        const XSelectionRequestEvent& req = event.xselectionrequest;
        XEvent reply{};
        reply.xselection.type = SelectionNotify;
        reply.xselection.requestor = req.requestor;
        reply.xselection.selection = req.selection;
        reply.xselection.target = req.target;
        reply.xselection.time = req.time;
        reply.xselection.property = None;
        if (req.target == atom("text/uri-list")) {
          XChangeProperty(display, req.requestor, req.property, req.target, 8, PropModeReplace,
                          reinterpret_cast<const unsigned char*>(uriList.data()), static_cast<int>(uriList.size()));
          reply.xselection.property = req.property;
        }
        XSendEvent(display, req.requestor, False, NoEventMask, &reply);
        XFlush(display);
      }
    }
    struct timespec pause = {0, 5 * 1000 * 1000};
    nanosleep(&pause, nullptr);
  }
  return false;
}

} // namespace

int main(int argc, char** argv) {
  if (argc < 5) {
    std::fprintf(stderr, "usage: gui_drop_files WINDOW_ID X Y PATH...\n");
    return 2;
  }
  display = XOpenDisplay(nullptr);
  if (!display) {
    std::fprintf(stderr, "gui_drop_files: cannot open the display\n");
    return 1;
  }
  target = static_cast<Window>(std::strtoul(argv[1], nullptr, 0));
  std::string uriList;
  for (int i = 4; i < argc; ++i) uriList += std::string("file://") + argv[i] + "\r\n";

  source = XCreateSimpleWindow(display, DefaultRootWindow(display), 0, 0, 1, 1, 0, 0, 0);
  XSetSelectionOwner(display, atom("XdndSelection"), source, CurrentTime);

  int rootX = 0, rootY = 0;
  Window child = 0;
  XTranslateCoordinates(display, target, DefaultRootWindow(display), std::atoi(argv[2]), std::atoi(argv[3]), &rootX,
                        &rootY, &child);

  sendToTarget("XdndEnter", 5L << 24, static_cast<long>(atom("text/uri-list")), None, None);
  sendToTarget("XdndPosition", 0, (static_cast<long>(rootX) << 16) | rootY, CurrentTime,
               static_cast<long>(atom("XdndActionCopy")));
  if (!serveUntil("XdndStatus", uriList)) {
    std::fprintf(stderr, "gui_drop_files: the window did not answer the drag\n");
    return 1;
  }
  sendToTarget("XdndDrop", 0, CurrentTime, 0, 0);
  if (!serveUntil("XdndFinished", uriList)) {
    std::fprintf(stderr, "gui_drop_files: the window did not finish the drop\n");
    return 1;
  }
  XDestroyWindow(display, source);
  XCloseDisplay(display);
  return 0;
}
