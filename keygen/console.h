/// @file
/// The console: every message the user sees goes through MessageOut, in the colour of its kind.
#pragma once

#include <QString>

/// The kind of a message. Each kind has its own escape prefix. Two messages have a kind that does not fit
/// their text: the start of RSA key generation is red, so that it stands out, and an unsupported cipher is
/// reported in the same kind as a supported one.
enum MSGTYPE : int {
    /// Green: something that was asked for is done (a pair, the table hash, random data, a signature that
    /// verifies), or chosen in the dialogue; and the lines that open the dialogue and the help text.
    MSG_SUCCESS = 0,
    /// Default background: progress (the curve and the cipher, a file created), and everything that belongs
    /// to another message: the option, folder or path it is about, the choices of a question, the files after
    /// a success. Also the version and the notice.
    MSG_INFO = 1,
    /// Default colours: a question asked for the first time, the question for a password each time, and the
    /// lines of the help text.
    MSG_PROMPT = 2,
    /// Magenta: any other question asked again after an invalid answer, and a warning, with its question if
    /// it has one.
    MSG_REPROMPT = 3,
    /// Red: an error, its reason and the advice after it; from the engine, also the path it is about. The
    /// caller of a failed function may add its own line.
    MSG_ERROR = 4,
    /// Cyan: the banner, and the heading of the random data.
    MSG_TITLE = 5,
};

/// Writes `message` to standard output, as UTF-8 and up to its first zero character, between the prefix of
/// `type` and the reset sequence. A value outside the enumeration writes no prefix. Nothing is flushed, and
/// no line feed is added: messages contain their own. A program that links the engine may define its own
/// MessageOut, which then replaces this one.
void MessageOut(QString message, MSGTYPE type);
