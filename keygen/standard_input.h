// Standard input as text, for the questions of the dialogue and about the output folders.
#pragma once

#include <QString>

/// A line as it was read.
struct InputLine {
    QString text;           ///< without its line end (LF or CR LF); invalid UTF-8 becomes U+FFFD
    bool isUtf8 = true;     ///< all of it was UTF-8
    bool isTooLong = false; ///< it is longer than 1 MiB; `text` holds only its start and is not an answer
};

/// The next line. Empty at the end of input, after a pause: questions are repeated without limit, and must
/// not spin. A line that never ends is returned as too long again and again.
InputLine ReadLine();

/// The next word delimited by white space, from a later line if necessary. ReadLine then returns the rest of
/// the word's line, unless only the line end is left. Empty at the end of input and for a line that is too
/// long, as above.
QString ReadWord();
