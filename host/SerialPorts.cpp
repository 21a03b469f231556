// The only file that knows libserialport.
#include "host/SerialPorts.h"

#include <libserialport.h>

namespace host {

std::vector<SerialPort> ListSerialPorts() {
    std::vector<SerialPort> found;
    sp_port** ports = nullptr;
    if (sp_list_ports(&ports) != SP_OK) return found;
    for (sp_port* const* port = ports; *port != nullptr; ++port) {
        const char* const text = sp_get_port_description(*port);
        found.push_back({sp_get_port_name(*port), text != nullptr ? text : ""});
    }
    sp_free_port_list(ports);
    return found;
}

}  // namespace host
