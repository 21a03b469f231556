// A block as bytes: packed for another program, and back.
#include <cstdio>
#include <vector>

#include "sigweave/sigweave.h"

int main() {
    TCIOStream writer;
    TCIOStream queue;
    writer.AddOutputStream(queue.SetInputStream(9));
    const int samples[] = {1, -2};
    writer.WriteIntVec(samples, 2);

    std::vector<char> frame(static_cast<std::size_t>(queue.SerializeBlock(nullptr)));  // asks for the size
    queue.SerializeBlock(frame.data());                                                // takes the block
    for (std::size_t i = 0; i < frame.size(); ++i)
        std::printf("%02x%c", static_cast<unsigned char>(frame[i]), i % 8 == 7 ? '\n' : ' ');

    frame.back() ^= 1;  // damaged on the way: refused, and nothing changes
    std::printf("%d\n", writer.DeSerializeBlock(frame.data(), static_cast<int>(frame.size())));
    frame.back() ^= 1;
    std::printf("%d\n", writer.DeSerializeBlock(frame.data(), static_cast<int>(frame.size())));
}
