// The dialogue, with any sequence of bytes as answers.
#include "keygen/dialogue.h"
#include "keygen/run_settings.h"
#include "src/text_of.h"
#include "tests/fuzz/fuzz_target.h"

#include <QFileInfo>
#include <QStringList>

namespace {

/// The lines of `input` as they were typed; none if some are invalid UTF-8.
QStringList linesOf(const QByteArray &input)
{
    bool valid = false;
    QStringList lines = TextOf(input, &valid).split('\n');
    if (!valid)
        return {};
    for (QString &line : lines) {
        if (line.endsWith('\r'))
            line.chop(1);
    }
    return lines;
}

void requireConfirmedPasswords(const QStringList &lines)
{
    Require(passwordOK && passwordTable.size() == numberKeys, "each pair has its password");
    Require(passwordTable.last() == password, "the last password is the current one");
    for (const QString &accepted : passwordTable) {
        Require(accepted.size() >= 4 && accepted.size() <= 1023, "each password has an accepted length");
        Require(!accepted.contains(QChar(0)), "no password is truncated in the engine");
        Require(lines.isEmpty() || lines.count(accepted) >= 2, "each password was typed twice");
    }
}

void requireCompleteSettings(const QStringList &lines)
{
    Require(numberKeys == 1 || numberKeys == 8, "one pair or a packet");
    Require(isKeyNumberCommand == (numberKeys == 8), "a packet was chosen");
    Require(isKeyGeneration && !isRandomCmd, "keys and nothing else");
    const QString folder = absolutePath.endsWith('/') ? absolutePath : absolutePath + "/";
    Require(publicKeyPath == folder + "publicKey.pem", "the public key is in the directory");
    Require(privateKeyPath == absolutePath + "/privateKey.pem", "the private key is in the directory");
    Require(hashPath == folder + "publicKeyhash.bin", "the hash is in the directory");
    requireConfirmedPasswords(lines);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const std::string answers(reinterpret_cast<const char *>(data), size);
    if (size > longestInput || !StaysInside(answers.substr(0, answers.find('\n'))))
        return 0;
    WorkInEmptyFolder();
    const RunEnd end = RunOn(answers, RunDialogue);
    Require(end != RunEnd::Answered, "only the end of the dialogue is a success");
    if (end == RunEnd::Refused)
        Require(!QFileInfo::exists(absolutePath), "only a missing directory ends the dialogue");
    // A byte order mark at the start of the stream is not part of the first answer.
    if (end == RunEnd::Completed)
        requireCompleteSettings(linesOf(QByteArray::fromStdString(answers)));
    return 0;
}
