/// @file
/// The console: every message the user sees goes through MessageOut, in the colour of its kind.
#pragma once

#include <QString>

/// The kind of a message. Each kind has its own escape prefix.
enum MSGTYPE : int {
    MSG_SUCCESS = 0,  ///< confirmations, green
    MSG_INFO = 1,     ///< details and names of written files, default background
    MSG_PROMPT = 2,   ///< questions, default colours
    MSG_REPROMPT = 3, ///< questions asked again and warnings, magenta
    MSG_ERROR = 4,    ///< errors, red
    MSG_TITLE = 5,    ///< the banner and headings, cyan
};

/// Writes `message` to standard output, as UTF-8 and up to its first zero character, between the prefix of
/// `type` and the reset sequence. A value outside the enumeration writes no prefix. Nothing is flushed, and
/// no line end is added: messages carry their own. A program that links the engine may define a MessageOut of
/// its own, which then takes the place of this one.
void MessageOut(QString message, MSGTYPE type);
