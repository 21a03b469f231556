#pragma once

#include <string>
#include <vector>

namespace host {

struct SerialPort {
    std::string name;  // as /dev/ttyUSB0
    std::string text;  // what the system or the plugged-in device calls it
};

// The serial lines of the machine. None is opened: that alone resets some instruments.
std::vector<SerialPort> ListSerialPorts();

}  // namespace host
