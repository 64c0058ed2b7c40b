#include "keygen/standard_input.h"

#include "keygen/console.h"
#include "keygen/secrets.h"

#include <QIODevice>
#include <QTextStream>

#include <openssl/crypto.h>

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <optional>
#include <thread>
#include <utility>

namespace {

// A terminal's end of input passes, so it is waited for rather than taken as final: twenty looks a second.
constexpr std::chrono::milliseconds endOfInputPause(50);

/// True when reading is to be tried again: a signal came between, or another program left the descriptor
/// non-blocking and nothing has been typed yet.
bool interruptedOrTooEarly()
{
    if (errno == EAGAIN) {
        pollfd waiting = {STDIN_FILENO, POLLIN, 0};
        poll(&waiting, 1, -1);
        return true;
    }
    return errno == EINTR;
}

/// Hands out what a terminal or a pipe has, as it comes. A file object would wait until a whole buffer of its
/// own is full, and the C library's stream would not go on after a terminal's end of input.
class Device : public QIODevice {
public:
    // Without a buffer of the device's, fewer copies of a password are left behind.
    Device() { open(ReadOnly | Unbuffered); }
    bool isSequential() const override { return true; }

protected:
    qint64 readData(char *data, qint64 maxSize) override
    {
        for (;;) {
            const ssize_t size = ::read(STDIN_FILENO, data, static_cast<std::size_t>(maxSize));
            if (size != -1 || !interruptedOrTooEarly())
                return size;
        }
    }
    qint64 writeData(const char *, qint64) override { return -1; }
};

struct Line {
    QString text;
    bool valid = true;
};

struct Input {
    Input()
    {
        stream.setDevice(&device);
        // One character for each byte: the stream finds the line ends, and whether a line is UTF-8 can still
        // be told.
        stream.setEncoding(QStringConverter::Latin1);
        stream.setAutoDetectUnicode(false);
    }

    /// The line that `characters` of the stream stand for.
    Line decoded(const QString &characters)
    {
        QByteArray bytes = characters.toLatin1();
        // Some editors write a byte order mark at the start of a file; anywhere else it is text.
        if (std::exchange(atStart, false) && bytes.startsWith(byteOrderMark))
            bytes.remove(0, byteOrderMark.size());
        Line line;
        line.text = TextOf(bytes, &line.valid);
        Wipe(bytes);
        return line;
    }

    static constexpr QByteArrayView byteOrderMark = "\xEF\xBB\xBF";

    Device device;
    QTextStream stream;
    bool atStart = true;
    std::optional<Line> restOfLine;
};

Input &input()
{
    static Input theInput;
    return theInput;
}

/// Overwrites what calls that have returned left on the stack. To be called, not to be made a part of its
/// caller.
[[gnu::noinline]] void wipeStackBelow()
{
    // The stream reads into a block of 16 KiB there.
    std::array<char, 65536> block;
    OPENSSL_cleanse(block.data(), block.size());
}

/// The next line, or nothing at the end of input. A line may be a password, so our copies of it are wiped.
/// Out of reach is the text that the stream splits into lines, freed but not overwritten when its last line
/// was taken.
std::optional<Line> nextLine()
{
    if (std::optional<Line> rest = std::exchange(input().restOfLine, std::nullopt))
        return rest;
    // What was asked stands on the screen before the answer is waited for.
    std::fflush(stdout);
    QString characters = input().stream.readLine();
    wipeStackBelow();
    if (characters.isNull()) {
        std::this_thread::sleep_for(endOfInputPause);
        return std::nullopt;
    }
    Line line = input().decoded(characters);
    Wipe(characters);
    return line;
}

} // namespace

QString ReadLine(bool *valid)
{
    const Line line = nextLine().value_or(Line());
    if (valid != nullptr)
        *valid = line.valid;
    return line.text;
}

QString ReadWord()
{
    while (const std::optional<Line> line = nextLine()) {
        const QString &text = line->text;
        const auto isSpace = [](QChar c) { return c.isSpace(); };
        const auto begin = std::find_if_not(text.cbegin(), text.cend(), isSpace);
        const auto end = std::find_if(begin, text.cend(), isSpace);
        if (begin == end)
            continue;
        if (end != text.cend())
            input().restOfLine = Line{QString(end, text.cend() - end), line->valid};
        return QString(begin, end - begin);
    }
    return {};
}
