// Parameter text: read it, change it, and find the rest as it was.
#include <cstdio>

#include "sigweave/sigweave.h"

int main() {
    const bool unquote = true, decimalComma = false;
    TCProcessParameters text(unquote, decimalComma, nullptr, "\n", "=", "#");
    text.ParseParamString(
        "# the left amplifier\n"
        "[left]\n"
        "gain=2.5\n"
        "label=\"one\\ntwo\"\n");
    const int gain = text.FindParameter("gain", "left");
    std::printf("gain was %g\n", text.GetParamValDbl(gain));

    text.SetParamValDbl(gain, 3.0, FORMAT_FIXED, 2);
    const int mute = text.InsertParameter("mute", "right", false);  // makes the section, too
    text.SetParamValInt(mute, 1);
    std::printf("%s", static_cast<const char*>(text.BuildParamString()));
}
