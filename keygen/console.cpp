#include "keygen/console.h"

#include <QByteArray>
#include <QStringEncoder>

#include <array>
#include <cstdio>

namespace {

// Indexed by MSGTYPE. The blank after four of the prefixes is part of the output format, as is its absence
// after the other two: prompts start at the left edge.
constexpr std::array<const char *, 6> prefixes = {
    "\x1B[00;32m ",       // MSG_SUCCESS
    "\x1B[49m ",          // MSG_INFO
    "\x1B[0m\x1B[39;49m", // MSG_PROMPT
    "\x1B[00;35m",        // MSG_REPROMPT
    "\x1B[00;31m ",       // MSG_ERROR
    "\x1B[36m ",          // MSG_TITLE
};

constexpr const char *reset = "\x1B[0m\x1B[39;49m";

} // namespace

void MessageOut(QString message, MSGTYPE type)
{
    // Compared as unsigned, so that negative values are out of range too.
    if (static_cast<unsigned int>(type) < prefixes.size())
        std::fputs(prefixes[static_cast<unsigned int>(type)], stdout);
    // The same bytes as from toLocal8Bit(), which would leave another copy behind.
    QStringEncoder encoder(QStringEncoder::Utf8, QStringEncoder::Flag::Stateless);
    QByteArray bytes = encoder(message);
    std::fputs(bytes.constData(), stdout);
    // The message may show a refused password.
    bytes.fill('\0');
    std::fputs(reset, stdout);
}
