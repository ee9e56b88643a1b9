#pragma once
// The one route of the console text of the serial, device, image and link-map
// layers. Each front end chooses where it goes: the GUI leaves the default (stdout,
// exactly the documented bytes), the command line sends device diagnostics to
// stderr or turns them into JSON events.
//
// Two routes are kept apart in their bytes, as the documented messages are:
// consolePuts adds a line feed (so "com port is not open!\r" ends "\r\n" on the
// wire of the console), consolePrint writes the text exactly as given.
#include <functional>
#include <string_view>

// Receives exactly the bytes to write, line end included, and the serial port the
// text is about (empty when it is about none). Called under the console's lock,
// so a sink sees one message at a time.
using ConsoleSink = std::function<void(std::string_view text, std::string_view port)>;

// Installs a sink; an empty one restores the default (stdout, flushed after each
// message). Returns the sink that was installed before.
ConsoleSink setConsoleSink(ConsoleSink sink);

// The puts route: text followed by a line feed.
void consolePuts(std::string_view text, std::string_view port = {});
// The formatted-print route: text as given, line end included by the caller.
void consolePrint(std::string_view text, std::string_view port = {});
