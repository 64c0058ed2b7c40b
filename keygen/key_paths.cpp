#include "keygen/key_paths.h"

#include "keygen/console.h"
#include "keygen/run_settings.h"

#include <cstdlib>

const char *const defaultPublicKeyName = "publicKey.pem";
const char *const defaultPrivateKeyName = "privateKey.pem";
const char *const defaultHashName = "publicKeyhash.bin";

namespace {

void completeWithName(QString &path, const char *defaultName)
{
    if (path.endsWith('/'))
        path.append(defaultName);
}

/// Puts `path` under absolutePath. `error` ends in a tab: the offending folder follows on the same line.
void putUnderBaseFolder(QString &path, const char *defaultName, const char *error)
{
    NewPath = ModifyPath(path);
    InfoPath.setFile(NewPath);
    if (!NewPath.isEmpty() && !InfoPath.isRelative()) {
        MessageOut(error, MSG_ERROR);
        MessageOut(NewPath + "\n", MSG_INFO);
        std::exit(EXIT_FAILURE);
    }
    path.prepend(absolutePath);
    completeWithName(path, defaultName);
}

void completeUnderBaseFolder()
{
    if (!absolutePath.endsWith('/'))
        absolutePath.append('/');
    putUnderBaseFolder(publicKeyPath, defaultPublicKeyName,
                       "Error: Absolute path for public Key is not accepted when command '-abs' is used\t");
    putUnderBaseFolder(privateKeyPath, defaultPrivateKeyName,
                       "Error: Absolute path for private Key is not accepted when command '-abs' is used\t");
    putUnderBaseFolder(
        hashPath, defaultHashName,
        "Error: Absolute path for public Key Hash is not accepted when command '-abs' is used\t");
}

void deriveIfMissing(QString &path, const char *defaultName)
{
    if (path.isEmpty())
        path = NewPath + defaultName;
}

// Only the path that gives the folder is completed with its default name; the others stay as typed. If all
// three are given, none is changed.
void completeFromEachOther()
{
    const bool hasPublic = !publicKeyPath.isEmpty();
    const bool hasPrivate = !privateKeyPath.isEmpty();
    const bool hasHash = !hashPath.isEmpty();

    if (!hasPublic && !hasPrivate && !hasHash) {
        isKeyGeneration = false;
        return;
    }
    if (hasPublic && hasPrivate && hasHash)
        return;

    if (hasPublic) {
        completeWithName(publicKeyPath, defaultPublicKeyName);
        NewPath = ModifyPath(publicKeyPath);
    } else if (hasPrivate) {
        completeWithName(privateKeyPath, defaultPrivateKeyName);
        NewPath = ModifyPath(privateKeyPath);
    } else {
        completeWithName(hashPath, defaultHashName);
        NewPath = ModifyPath(hashPath);
    }
    deriveIfMissing(publicKeyPath, defaultPublicKeyName);
    deriveIfMissing(privateKeyPath, defaultPrivateKeyName);
    deriveIfMissing(hashPath, defaultHashName);
    isKeyGeneration = true;
}

} // namespace

QString ModifyPath(const QString &path)
{
    return path.left(path.lastIndexOf('/') + 1);
}

void CompleteKeyPaths()
{
    if (absolutePath.isEmpty())
        completeFromEachOther();
    else
        completeUnderBaseFolder();
}
