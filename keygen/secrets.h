// Wiping passwords once they have been used.
#pragma once

#include <QByteArray>
#include <QString>

/// Overwrites the text in place and empties it. Strings that share its characters are overwritten with it:
/// call this only when none of them is needed any more.
void Wipe(QString &text);
void Wipe(QByteArray &text);
