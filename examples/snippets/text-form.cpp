// A block in the older text form, and back.
#include <cstdio>

#include "sigweave/sigweave.h"

int main() {
    TCIOStream writer;
    TCIOStream queue;
    writer.AddOutputStream(queue.SetInputStream(9));
    writer.StartWriteSegments();
    writer.WriteSegment("count", 3);
    writer.WriteSegment("word", "ab");
    writer.EndWriteSegments();

    const TCString text = queue.SerializeForOldStream(0);  // the block keeps waiting
    for (int i = 0; i < text.GetLength(); ++i) {
        const auto byte = static_cast<unsigned char>(text.GetAt(i));
        std::printf(byte >= ' ' && byte < 0x7f ? "%c" : "<%02x>", byte);
    }
    const char* position = text;
    std::printf("\n%d\n", writer.DeSerializeForOldStream(position, position + text.GetLength()));
}
