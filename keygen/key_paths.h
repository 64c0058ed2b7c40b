// The paths of a key pair's three files, as completed from the path options.
#pragma once

#include <QString>

/// The names of the files whose paths give only a folder.
extern const char *const defaultPublicKeyName;
extern const char *const defaultPrivateKeyName;
extern const char *const defaultHashName;

/// The folder part of `path`, up to and including its last '/'; empty when there is none.
QString ModifyPath(const QString &path);

/// Completes publicKeyPath, privateKeyPath and hashPath from each other and from absolutePath, and clears
/// isKeyGeneration when none of the four was given. An absolute path under absolutePath prints its error and
/// ends the process with status 1.
void CompleteKeyPaths();
