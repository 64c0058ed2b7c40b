// Where the files of a key pair go: their folders, which must exist before anything is generated, and the
// numbered names of a packet.
#pragma once

#include <QString>

/// Makes sure that the folder of the file `path` exists. A missing one is created with its parents if the
/// user agrees on standard input; the question is repeated, even at the end of input, until one of Y, y, N
/// and n is read. False if the user declined or the folder cannot be created.
bool CreateDirectoryPath(QString path);

/// Creates absolutePath without asking, then makes sure that the folders of the three key files exist. A
/// folder that is declined or cannot be created prints its error and ends the process with status 1.
void CreateOutputFolders();

/// The files of one key pair.
struct KeyFiles {
    QString privateKey;
    QString publicKey;
    QString hash;
};

/// The files of pair `index` (0 to 7) in a packet: the run's three paths with the two-digit index before the
/// last four characters, or in front of a path shorter than that, and "hash" replaced by "Hash" everywhere in
/// the hash path.
KeyFiles NumberedKeyFiles(int index);
