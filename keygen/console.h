/// @file
/// The console: every message the user sees goes through MessageOut, in the colour of its kind.
#pragma once

#include <QString>

/// The kind of a message, by what it says. Each kind has its own escape prefix.
/// Two messages have another kind than their text calls for: the start of an RSA key's generation is red, so
/// that it stands out, and a cipher that is not supported is told as those are that are.
enum MSGTYPE : int {
    /// Green: something that was asked for is done (a pair, the table hash, random data, a signature that
    /// verifies), or chosen in the dialogue; and the lines that open the dialogue and the help text.
    MSG_SUCCESS = 0,
    /// Default background: what goes on (the curve and the cipher, a file created), and all that belongs to
    /// another message: the option, folder or path it is about, the choices of a question, the files after a
    /// success. Also the version and the notice.
    MSG_INFO = 1,
    /// Default colours: a question asked for the first time, and the lines of the help text.
    MSG_PROMPT = 2,
    /// Magenta: a question asked again after an answer that is none, and a warning, with its question if it
    /// has one.
    MSG_REPROMPT = 3,
    /// Red: an error, its reason and the advice after it; from the engine, the path it is about too. The
    /// caller of what failed may add a line of its own.
    MSG_ERROR = 4,
    /// Cyan: the banner, and the heading of the random data.
    MSG_TITLE = 5,
};

/// Writes `message` to standard output, as UTF-8 and up to its first zero character, between the prefix of
/// `type` and the reset sequence. A value outside the enumeration writes no prefix. Nothing is flushed, and
/// no line end is added: messages carry their own. A program that links the engine may define a MessageOut of
/// its own, which then takes the place of this one.
void MessageOut(QString message, MSGTYPE type);
