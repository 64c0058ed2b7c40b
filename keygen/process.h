// The ground the process stands on, and the way it ends.
#pragma once

/// To be called first. Gives the standard streams a file each where the caller left one closed (the next file
/// opened would otherwise become standard output, and receive its messages), silences the application
/// library's own messages, and turns core files off: one would hold passwords and keys.
void PrepareProcess();

/// Ends the process with `status` through exit().
[[noreturn]] void exitKeyGen(int status);
