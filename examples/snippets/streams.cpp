// How a block travels: one writer, two receivers, no copy between them.
#include <cstdio>

#include "sigweave/sigweave.h"

int main() {
    TCIOStream writer;
    TCIOStream levels;
    TCIOStream picture;
    writer.AddOutputStream(levels.SetInputStream(9));
    writer.AddOutputStream(picture.SetInputStream(9));

    TCTypeInfo ti;
    ti.SetSignalname("sine");
    ti.SetSamplerate(48000.0);
    ti.SetState(COMPLETE);
    writer.SetTI(&ti, false);
    const double samples[] = {0.0, 0.5, 1.0};
    writer.WriteDblVec(samples, 3);  // copied once, here; both queues now hold the same block

    double* values = nullptr;
    int rows = 0;
    int columns = 0;
    levels.ReadDblMat(&values, rows, columns);  // no copy: the block's own values, until the next take
    std::printf("%s: %d values at %g Hz\n", levels.GetTI()->GetSignalname(), columns,
                levels.GetTI()->GetSamplerate());
    std::printf("waiting for the picture: %d\n", picture.GetBlockCnt(nullptr));
}
