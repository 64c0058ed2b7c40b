// Standard input, read as text by the questions of the dialogue and of the output folders.
#pragma once

#include <QString>

/// A line as it was read.
struct InputLine {
    QString text;       ///< without its line end (LF or CR LF); what was not UTF-8 stands as U+FFFD
    bool isUtf8 = true; ///< all of it was UTF-8
    bool isTooLong =
        false; ///< it is longer than 1 MiB, and `text` only its start: not to be taken for an answer
};

/// The next line. Empty at the end of input, after a pause: questions are asked again without limit, and must
/// not spin. A line that goes on for ever is returned as too long again and again.
InputLine ReadLine();

/// The next word delimited by white space, read across lines where need be. The rest of its line is what
/// ReadLine returns next, unless only the line end is left of it. Empty at the end of input and for a line
/// that is too long, as above.
QString ReadWord();
