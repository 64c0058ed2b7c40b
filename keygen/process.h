// The ground the process stands on, and the way it ends.
#pragma once

#include <QByteArray>
#include <QList>

/// The arguments of the program, less its name, as received. To be called first: they are wiped from the
/// vector, which other processes can read, and from where the start of the process has copied them to.
/// Passwords are among them.
QList<QByteArray> TakeArguments(int argc, char *argv[]);

/// Gives the standard streams a file each where the caller left one closed (the next file opened would
/// otherwise become standard output, and receive its messages). Silences the application library's own
/// messages, but for the one before it ends the process, which goes to standard error. Turns core files off,
/// and closes the memory to other processes of the same user: passwords and keys are in it. A limit on the
/// size of files makes writes fail instead of ending the process.
void PrepareProcess();

/// Writes out what standard output has buffered since PrepareProcess, and wipes the buffer.
void WipeOutputBuffer();

/// Ends the process with `status` through exit(). A part of the front end's interface for code around it: the
/// phases of a run call exit() themselves.
[[noreturn]] void exitKeyGen(int status);
