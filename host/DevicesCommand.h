#pragma once

namespace host {

// Lists the devices that give samples, as a table or as a JSON document, within some 300 ms. The exit code.
int ListDevices(bool json);

}  // namespace host
