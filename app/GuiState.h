#pragma once
// The process-wide state the screens share: the program path, the port list shown
// in the combo box, the chosen port and the identities of the devices found.
#include <cstdint>
#include <string>
#include <vector>

constexpr int portTableSize = 50;

extern std::string programPath;
extern std::vector<std::string> portNames;
// The combo box's texts, one per entry of portNames; entries past the list are
// null. A path shows as its last component ("/dev/ttyUSB0" as "ttyUSB0"), since the
// box is too narrow for the directory; names without one ("COM7") show as they are.
extern const char* portItems[portTableSize];
extern std::int32_t selectedPort;
extern std::vector<std::string> deviceIds;

// The text the combo box shows for a port name.
std::string portLabel(const std::string& name);

// Used by the shells when a file is dropped on the window.
void setProgramPath(const std::string& path);

// Lists the machine's serial ports again into portNames/portItems. At most
// portTableSize names are kept, and selectedPort is moved back into the list when
// the list got shorter.
void refreshPortList();

// Where refreshPortList gets its names from; null means the serial layer's scan.
// Tests install their own list.
using PortLister = void (*)(std::vector<std::string>& names);
void setPortLister(PortLister lister);

// Makes the window shell draw a frame soon. Safe from any thread; does nothing
// until a shell has registered its handler (and after it removed it).
void wakeGui();
using WakeHandler = void (*)();
void setWakeHandler(WakeHandler handler);
