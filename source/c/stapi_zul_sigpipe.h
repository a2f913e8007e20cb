// SIGPIPE is ignored while a thread writes to a peer that may be gone: a Gateway, or the reader of a trace pipe. The
// disposition belongs to the whole process; the first of several writers saves the application's and the last one
// restores it.
#pragma once

// Ignores SIGPIPE until restoreSigpipe, which the same caller calls next. Neither keeps errno.
void ignoreSigpipe();
void restoreSigpipe();

// From then on a forked child, in which the other threads of its parent do not write, begins with the application's
// disposition. To be called once.
void restoreSigpipeInChildren();
