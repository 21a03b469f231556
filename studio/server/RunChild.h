#pragma once

namespace studio {

// One run, in a process of its own: whatever a module does in it, the page and its server go on. It reads
// lines of JSON at standard input, the first of which says what to run, and writes frames to the pipe of
// tc::PipedProgram: the length in four bytes, a letter and the content. 'T' is a text for all viewers, 'P' a
// picture (see Encode). It ends its run when standard input ends. Answers the exit code.
int RunChild();

}  // namespace studio
