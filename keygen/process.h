// Preparing the process for a run, and ending it.
#pragma once

#include <QByteArray>
#include <QList>

/// The arguments of the program without its name, as received. To be called first: wipes the arguments, which
/// may include passwords, from the argument vector, which other processes can read, and from where the start
/// of the process has copied them.
QList<QByteArray> TakeArguments(int argc, char *argv[]);

/// Opens /dev/null for each standard stream that the caller left closed: otherwise the next file opened could
/// become standard output, and receive its messages. Silences the application library's own messages, except
/// the one before it ends the process, which goes to standard error. Turns off core files and closes the
/// memory to other processes of the same user, because it holds passwords and keys. Makes writes beyond a
/// limit on file sizes fail instead of ending the process.
void PrepareProcess();

/// Flushes standard output and wipes its buffer.
void WipeOutputBuffer();

/// Ends the process with `status` through exit(). It is part of the front end's interface; the phases of a
/// run call exit() themselves.
[[noreturn]] void exitKeyGen(int status);
