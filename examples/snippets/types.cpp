// The texts that stand for port types, units and the channels of a bus.
#include <cstdio>

#include "sigweave/sigweave.h"

int main() {
    TCPortHelper ports(nullptr);
    ports.SetPort(OUTPUT, 0, "Signal", "DOUBLE[]", "TIME_DOMAIN", true);
    int items = 0;
    std::printf("%s, ", ports.GetPortType(OUTPUT, 0, &items));
    std::printf("%d items, code %08x\n", items, ports.DataType(OUTPUT, 0));

    TCSI_Unit unit;
    TCString text;
    unit.FromString("kg m^2 s^-3 A^-1 * 1e-3");
    std::printf("%s\n", unit.ToString(text));

    TCBusSerializeHelper channel;
    channel.ParseSegmentName(TCBusSerializeHelper::GenSegmentName(0x44, nullptr, 1, 2, "mic 3", "Generator"));
    std::printf("%d, %s, %s\n", channel.PortIdx(), static_cast<const char*>(channel.GetSegmentName()),
                static_cast<const char*>(channel.GetValidation()));
}
