// xclient close WINDOW: a window manager's close button (WM_DELETE_WINDOW).
// xclient drop WINDOW X Y PATH...: a file manager's drop at X,Y (XDND 5, text/uri-list).
#include <X11/Xlib.h>

#include <unistd.h>

#include <string>

namespace {

Display* display = nullptr;
Window target = 0;

Atom atom(const char* name) { return XInternAtom(display, name, False); }

bool send(const char* type, long l0, long l1, long l2 = 0, long l3 = 0, long l4 = 0) {
  XEvent event{};
  event.xclient = {ClientMessage, 0, False, display, target, atom(type), 32, {}};
  event.xclient.data.l[0] = l0, event.xclient.data.l[1] = l1, event.xclient.data.l[2] = l2;
  event.xclient.data.l[3] = l3, event.xclient.data.l[4] = l4;
  return XSendEvent(display, target, False, NoEventMask, &event) != 0 && XFlush(display);
}

// Serves the target's requests for the dropped names until it sends `type`; false after 5 s.
bool serveUntil(const char* type, const std::string& uris) {
  for (int wait = 0; wait < 1000; ++wait, usleep(5000)) {
    for (XEvent event; XPending(display);) {
      XNextEvent(display, &event);
      if (event.type == ClientMessage && event.xclient.message_type == atom(type)) return true;
      if (event.type != SelectionRequest) continue;
      const XSelectionRequestEvent& req = event.xselectionrequest;
      const bool ours = req.target == atom("text/uri-list");
      if (ours)
        XChangeProperty(display, req.requestor, req.property, req.target, 8, PropModeReplace,
                        reinterpret_cast<const unsigned char*>(uris.data()), static_cast<int>(uris.size()));
      XSelectionEvent reply = {
          SelectionNotify, 0, True, display, req.requestor, req.selection, req.target, ours ? req.property : None,
          req.time};
      XSendEvent(display, req.requestor, False, NoEventMask, reinterpret_cast<XEvent*>(&reply));
      XFlush(display);
    }
  }
  return false;
}

} // namespace

int main(int argc, char** argv) {
  const std::string what = argc > 2 ? argv[1] : "";
  if ((what != "close" || argc != 3) && (what != "drop" || argc < 6)) return 2;
  if (!(display = XOpenDisplay(nullptr))) return 1;
  target = static_cast<Window>(std::stoul(argv[2], nullptr, 0));
  if (what == "close") return send("WM_PROTOCOLS", static_cast<long>(atom("WM_DELETE_WINDOW")), CurrentTime) ? 0 : 1;
  std::string uris;
  for (int i = 5; i < argc; ++i) uris += std::string("file://") + argv[i] + "\r\n";
  const Window root = DefaultRootWindow(display), source = XCreateSimpleWindow(display, root, 0, 0, 1, 1, 0, 0, 0);
  XSetSelectionOwner(display, atom("XdndSelection"), source, CurrentTime);
  int x = 0, y = 0;
  Window child = 0;
  XTranslateCoordinates(display, target, root, std::stoi(argv[3]), std::stoi(argv[4]), &x, &y, &child);
  send("XdndEnter", long(source), 5L << 24, long(atom("text/uri-list")));
  send("XdndPosition", long(source), 0, (long(x) << 16) | y, CurrentTime, long(atom("XdndActionCopy")));
  if (!serveUntil("XdndStatus", uris)) return 1;
  send("XdndDrop", long(source), 0, CurrentTime);
  return serveUntil("XdndFinished", uris) ? 0 : 1;
}
