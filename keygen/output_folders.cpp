#include "keygen/output_folders.h"

#include "keygen/console.h"
#include "keygen/key_paths.h"
#include "keygen/run_settings.h"
#include "keygen/standard_input.h"

#include <QDir>
#include <QFileInfo>

#include <cstdlib>

namespace {

/// Replaces QDir::dirName(), which miscounts in paths of 32 KiB and more: they would be cut in the wrong
/// place, and a folder that nobody named would be created.
QString lastComponent(QString path)
{
    if (path.size() > 1 && path.endsWith('/'))
        path.chop(1);
    return path.mid(path.lastIndexOf('/') + 1);
}

/// `path` without its last component and the separator before it. A bare name is returned whole.
QString withoutLastComponent(const QString &path)
{
    const QString component = lastComponent(path);
    if (path.compare(component, Qt::CaseInsensitive) == 0)
        return path;
    return path.chopped(qMin(component.size() + 1, path.size()));
}

bool userAgrees()
{
    MessageOut("Warning: File path does not exist. Do you want to create it?\n(y/n)", MSG_REPROMPT);
    for (;;) {
        const QString answer = ReadWord();
        if (answer == "Y" || answer == "y")
            return true;
        if (answer == "N" || answer == "n")
            return false;
        MessageOut("(y/n)", MSG_REPROMPT);
    }
}

void createFolderOf(const QString &path, const char *error, const char *advice)
{
    if (ModifyPath(path).isEmpty() || CreateDirectoryPath(path))
        return;
    MessageOut(error, MSG_ERROR);
    MessageOut(path + "\n", MSG_INFO);
    MessageOut(advice, MSG_ERROR);
    std::exit(EXIT_FAILURE);
}

QString numbered(const QString &path, int index)
{
    constexpr int extensionLength = 4;
    QString name = path;
    return name.insert(qMax(0, path.size() - extensionLength), QString("%1").arg(index, 2, 10, QChar('0')));
}

} // namespace

bool CreateDirectoryPath(QString path)
{
    if (QFileInfo::exists(path))
        return true;
    path = withoutLastComponent(path);
    const QDir folder(path);
    if (folder.exists())
        return true;
    MessageOut(path + "\n", MSG_INFO);
    return userAgrees() && folder.mkpath(".");
}

void CreateOutputFolders()
{
    if (!QDir(absolutePath).exists())
        QDir().mkdir(absolutePath);
    // The two messages for the hash file start in lower case, unlike the others.
    createFolderOf(publicKeyPath, "Error: Creating file path has failed\n",
                   "Please make sure you have entered the correct path.\n");
    createFolderOf(privateKeyPath, "Error: Creating file path has failed\n",
                   "Please make sure you have entered the correct path.\n");
    createFolderOf(hashPath, "Error: creating file path has failed\n",
                   "please make sure you have entered the correct path.\n");
}

KeyFiles NumberedKeyFiles(int index)
{
    // On purpose, the names of folders change too.
    return {numbered(privateKeyPath, index), numbered(publicKeyPath, index),
            numbered(hashPath, index).replace("hash", "Hash")};
}
