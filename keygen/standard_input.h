// Standard input, read as text by the questions of the dialogue and of the output folders.
#pragma once

#include <QString>

/// The next line, without its line end (LF or CR LF). `*valid`, where given, tells whether it was UTF-8; what
/// was not stands as U+FFFD. Empty at the end of input, after a pause: questions are asked again without
/// limit, and must not spin.
QString ReadLine(bool *valid = nullptr);

/// The next word delimited by white space, read across lines where need be. The rest of its line is what
/// ReadLine returns next, unless only the line end is left of it. Empty at the end of input, after the same
/// pause.
QString ReadWord();
