// Paths, passwords and answers come as bytes, and are shown and measured as text.
#pragma once

#include <QByteArrayView>
#include <QString>

/// The text that `utf8` encodes. A leading byte order mark is text like any other, so that the text names the
/// same file, or is the same password, as the bytes. Bytes that are not UTF-8 become U+FFFD, one or more of
/// them, and `*valid`, where given, tells whether there were none.
QString TextOf(QByteArrayView utf8, bool *valid = nullptr);
