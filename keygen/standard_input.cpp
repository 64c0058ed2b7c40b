#include "keygen/standard_input.h"

#include "src/text_of.h"

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

// More input can follow the end of input on a terminal, so reading is tried again, twenty times a second.
constexpr std::chrono::milliseconds endOfInputPause(50);

constexpr qsizetype longestLine = 1 << 20;
// Beyond this, a line that is too long is taken to be endless, and is refused without waiting for its end.
constexpr qsizetype longestRest = 1 << 26;

/// True when the read must be repeated: a signal interrupted it, or another program left the descriptor
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

/// Delivers the input of a terminal or a pipe as it arrives: a file object would wait until its whole buffer
/// is full, and the C library's stream would not continue after a terminal's end of input. Delivers one byte
/// at a time and erases it here, so that the reader never holds a password in a buffer that is not ours.
class Device : public QIODevice {
public:
    Device() { open(ReadOnly | Unbuffered); }
    // Input that was typed ahead and never read may be a password, too.
    ~Device() override { OPENSSL_cleanse(block.data() + next, end - next); }
    bool isSequential() const override { return true; }

    /// Drops the rest of a line; false if the line goes on after `most` bytes.
    bool dropLine(qsizetype most)
    {
        for (; most > 0; --most) {
            char byte = 0;
            if (Device::readData(&byte, 1) != 1 || byte == '\n')
                return true;
        }
        return false;
    }

protected:
    qint64 readData(char *data, qint64) override
    {
        if (next == end && !fill())
            return 0;
        *data = std::exchange(block[next++], '\0');
        return 1;
    }
    qint64 writeData(const char *, qint64) override { return -1; }

private:
    bool fill()
    {
        ssize_t size = 0;
        do {
            size = ::read(STDIN_FILENO, block.data(), block.size());
        } while (size == -1 && interruptedOrTooEarly());
        next = 0;
        end = static_cast<std::size_t>(std::max<ssize_t>(size, 0));
        return end > 0;
    }

    std::array<char, 16384> block = {};
    std::size_t next = 0;
    std::size_t end = 0;
};

class Input {
public:
    Input()
    {
        stream.setDevice(&device);
        // One character for each byte, so that invalid UTF-8 can still be detected.
        stream.setEncoding(QStringConverter::Latin1);
        stream.setAutoDetectUnicode(false);
    }

    /// The next line, or nothing at the end of input.
    std::optional<InputLine> nextLine()
    {
        for (;;) {
            const std::optional<QByteArrayView> taken = takeBytes();
            const bool isTooLong = taken && taken->size() > longestLine;
            const bool isRest = std::exchange(goesOn, isTooLong && !device.dropLine(longestRest));
            if (!taken) {
                std::this_thread::sleep_for(endOfInputPause);
                return std::nullopt;
            }
            InputLine line = decoded(*taken);
            line.isTooLong = isTooLong;
            OPENSSL_cleanse(bytes.data(), static_cast<std::size_t>(taken->size()));
            // The end of a line that was refused before does not count as a line.
            if (!isRest || goesOn)
                return line;
        }
    }

    std::optional<InputLine> restOfLine;

private:
    /// The bytes of a line without its line feed; at most one byte more than the longest line has.
    std::optional<QByteArrayView> takeBytes()
    {
        std::size_t size = 0;
        while (size < bytes.size()) {
            const QString character = stream.read(1);
            if (character.isEmpty() && size == 0)
                return std::nullopt;
            if (character.isEmpty() || character.front() == u'\n')
                break;
            bytes[size++] = character.front().toLatin1();
        }
        return QByteArrayView(bytes.data(), static_cast<qsizetype>(size));
    }

    InputLine decoded(QByteArrayView line)
    {
        // Some editors write a byte order mark at the start of a file; anywhere else it is text.
        constexpr QByteArrayView byteOrderMark = "\xEF\xBB\xBF";
        if (std::exchange(atStart, false) && line.startsWith(byteOrderMark))
            line = line.sliced(byteOrderMark.size());
        if (line.endsWith('\r'))
            line.chop(1);
        InputLine result;
        result.text = TextOf(line, &result.isUtf8);
        return result;
    }

    Device device;
    QTextStream stream;
    // Of fixed size, because a buffer that grows would leave copies of a password behind.
    std::array<char, longestLine + 1> bytes;
    bool atStart = true;
    bool goesOn = false; // the line returned last was too long, and has not ended yet
};

Input &input()
{
    static Input theInput;
    return theInput;
}

/// The rest of the line that a word was taken from, else the next line, or nothing at the end of input.
std::optional<InputLine> nextLine()
{
    if (std::optional<InputLine> rest = std::exchange(input().restOfLine, std::nullopt))
        return rest;
    // Shows the question before waiting for the answer.
    std::fflush(stdout);
    return input().nextLine();
}

} // namespace

InputLine ReadLine()
{
    return nextLine().value_or(InputLine());
}

QString ReadWord()
{
    while (const std::optional<InputLine> line = nextLine()) {
        if (line->isTooLong)
            break;
        const QString &text = line->text;
        const auto isSpace = [](QChar c) { return c.isSpace(); };
        const auto begin = std::find_if_not(text.cbegin(), text.cend(), isSpace);
        const auto end = std::find_if(begin, text.cend(), isSpace);
        if (begin == end)
            continue;
        if (end != text.cend())
            input().restOfLine = InputLine{QString(end, text.cend() - end), line->isUtf8};
        return QString(begin, end - begin);
    }
    return {};
}
