// Paths, passwords and answers come as bytes, and are shown and measured as text.
#pragma once

#include <QByteArrayView>
#include <QString>

/// The text that `utf8` encodes. A leading byte order mark is text like any other, so that the text names the
/// same file, or is the same password, as the bytes. Bytes that are not UTF-8 become one or more U+FFFD, and
/// `*valid`, if given, says whether all were UTF-8.
QString TextOf(QByteArrayView utf8, bool *valid = nullptr);
