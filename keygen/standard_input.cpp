#include "keygen/standard_input.h"

#include <QFile>
#include <QTextStream>

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <optional>
#include <thread>
#include <utility>

namespace {

// A terminal's end of input passes, so it is waited for rather than taken as final: twenty looks a second.
constexpr std::chrono::milliseconds endOfInputPause(50);

/// Reads from the descriptor: unlike the C library's stream it returns what a terminal or a pipe has, as it
/// comes, and goes on after an end of input.
struct Input {
    Input()
    {
        file.open(STDIN_FILENO, QIODevice::ReadOnly);
        stream.setDevice(&file);
        stream.setAutoDetectUnicode(false);
    }

    QFile file;
    QTextStream stream;
    std::optional<QString> restOfLine;
};

Input &input()
{
    static Input theInput;
    return theInput;
}

/// The next line, or nothing at the end of input.
std::optional<QString> nextLine()
{
    if (std::optional<QString> rest = std::exchange(input().restOfLine, std::nullopt))
        return rest;
    // What was asked stands on the screen before the answer is waited for.
    std::fflush(stdout);
    QString line = input().stream.readLine();
    if (!line.isNull())
        return line;
    std::this_thread::sleep_for(endOfInputPause);
    return std::nullopt;
}

} // namespace

QString ReadLine()
{
    return nextLine().value_or(QString());
}

QString ReadWord()
{
    while (const std::optional<QString> line = nextLine()) {
        const auto isSpace = [](QChar c) { return c.isSpace(); };
        const auto begin = std::find_if_not(line->cbegin(), line->cend(), isSpace);
        const auto end = std::find_if(begin, line->cend(), isSpace);
        if (begin == end)
            continue;
        if (end != line->cend())
            input().restOfLine = QString(end, line->cend() - end);
        return QString(begin, end - begin);
    }
    return {};
}
