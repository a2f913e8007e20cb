// Descriptors of the library's own. An application may have closed its standard streams; a socket or file that got such
// a number would be written to by whoever prints.
#pragma once

// Takes over a descriptor (or -1, with errno set) and returns it with a number above the standard streams', closed in
// child programs; -1 with errno set when there is no such number, the descriptor is then closed.
[[nodiscard]] int aboveStandardStreams(int descriptor);
