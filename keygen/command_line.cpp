#include "keygen/command_line.h"

#include "keygen/console.h"
#include "keygen/help.h"
#include "keygen/run_settings.h"
#include "keygen/secrets.h"
#include "src/text_of.h"

#include <QStringList>

#include <algorithm>
#include <cstdlib>
#include <vector>

namespace {

struct OptionEntry {
    QString name; // as typed
    QStringList values;

    /// The value at `index`, empty when it was not given.
    QString value(int index) const { return values.value(index); }
};

// Both may contain passwords, the names one that begins with '-'. They are global so that they can be wiped
// wherever the run ends.
QList<QByteArray> received;
std::vector<OptionEntry> entries;

constexpr int mostValues = 25;

bool isSame(const QString &name, const char *accepted)
{
    return name.compare(QLatin1String(accepted), Qt::CaseInsensitive) == 0;
}

[[noreturn]] void refuseWithHelp(const char *message)
{
    MessageOut(message, MSG_ERROR);
    ShowHelp();
    std::exit(EXIT_FAILURE);
}

[[noreturn]] void refuseArgument()
{
    MessageOut("Error: Argument error.Use -? for help.\n", MSG_ERROR);
    std::exit(EXIT_FAILURE);
}

/// The text of a value. A value that is not UTF-8 is refused: as a password it would encrypt the key under
/// bytes other than those typed, and nobody could open the key again.
QString valueText(const QByteArray &argument)
{
    bool valid = false;
    QString text = TextOf(argument, &valid);
    if (!valid) {
        Wipe(text);
        refuseArgument();
    }
    return text;
}

void collectOptions()
{
    auto argument = received.cbegin();
    while (argument != received.cend()) {
        if (!argument->startsWith('-'))
            refuseArgument();
        entries.push_back({TextOf(*argument++), {}});
        QStringList &values = entries.back().values;
        while (argument != received.cend() && !argument->startsWith('-') && values.size() < mostValues)
            values.append(valueText(*argument++));
    }
}

void checkNames()
{
    for (const OptionEntry &entry : entries) {
        true_command =
            std::any_of(tab_command_name.begin(), tab_command_name.end(), [&](const QString &known) {
                return known.compare(entry.name, Qt::CaseInsensitive) == 0;
            });
        if (!true_command) {
            MessageOut("Error: Invalid command ", MSG_ERROR);
            QString shown = QString("'%1'\n\n").arg(entry.name);
            MessageOut(shown, MSG_INFO);
            Wipe(shown);
            ShowHelp();
            std::exit(EXIT_FAILURE);
        }
    }
}

struct Answer {
    const char *name;
    void (*show)();
};

// The first of these ends the run, whatever else is given.
constexpr Answer answers[] = {
    {"-?", ShowHelp}, {"-h", ShowHelp}, {"--help", ShowHelp}, {"-v", ShowVersion}, {"--version", ShowVersion},
};

const Answer *answerTo(const QString &name)
{
    const auto *const answer = std::find_if(std::begin(answers), std::end(answers),
                                            [&](const Answer &each) { return isSame(name, each.name); });
    return answer != std::end(answers) ? answer : nullptr;
}

void answerHelpAndVersion()
{
    for (const OptionEntry &entry : entries) {
        if (const Answer *const answer = answerTo(entry.name)) {
            answer->show();
            std::exit(EXIT_SUCCESS);
        }
    }
}

void applyPassword(const OptionEntry &entry)
{
    password = entry.value(0);
    // Any other count is left to the password checks, which run once the whole command line has been read.
    if (entry.values.size() == packetSize)
        passwordTable.append(entry.values);
    else if (entry.values.size() == 1)
        passwordTable.append(password);
    numberPassword = static_cast<int>(entry.values.size());
    isPasswordCmd = true;
}

void applyCipher(const OptionEntry &entry)
{
    if (isSame(entry.value(0), "aes128"))
        aes128 = true;
    else if (isSame(entry.value(0), "aes256"))
        aes128 = false;
    else
        wrongParameterAES = true;
}

// The numbers are in the opposite order to the help text's list; files already in the field were made with
// them.
void applyCurve(const OptionEntry &entry)
{
    const QString curve = entry.value(0);
    if (isSame(curve, "brainpoolP256t1") || isSame(curve, "1"))
        brainpoolP256t1 = true;
    else if (isSame(curve, "prime256v1") || isSame(curve, "2"))
        brainpoolP256t1 = false;
    else
        wrongParameterECC = true;
}

void applyKeyNumber(const OptionEntry &entry)
{
    numberKeys = entry.value(0).toInt();
    if (numberKeys != 1 && numberKeys != packetSize)
        refuseWithHelp(
            "Wrong parameter with command --number-key/-n, permitted number value must be respected "
            "{1 or 8}.\n");
    isKeyNumberCommand = true;
}

void applyRandom(const OptionEntry &entry)
{
    if (entry.values.size() != 2)
        refuseWithHelp("Wrong parameters with command --random/-rand.\n");
    randSize = entry.value(0).toInt();
    randPath = entry.value(1);
    if (!randPath.endsWith(".bin"))
        refuseWithHelp(
            "Wrong parameters with command --random/-rand. Output file extension should be .bin\n");
    isRandomCmd = true;
}

struct Command {
    const char *shortName;
    const char *longName;
    void (*apply)(const OptionEntry &entry);
};

// Two long names differ from those in tab_command_name on purpose: "--hash-image", and "--prvkey-enc " with
// its trailing blank, never pass the name check, while "--public-key-hash" and "--prvkey-enc" pass it and
// then apply nothing. Command lines in the field that use them must keep doing what they do.
constexpr Command commands[] = {
    {"-pwd", "--password", applyPassword},
    {"-pubk", "--public-key", [](const OptionEntry &entry) { publicKeyPath = entry.value(0); }},
    {"-prvk", "--private-key", [](const OptionEntry &entry) { privateKeyPath = entry.value(0); }},
    {"-hash", "--hash-image", [](const OptionEntry &entry) { hashPath = entry.value(0); }},
    {"-abs", "--absolute-path", [](const OptionEntry &entry) { absolutePath = entry.value(0); }},
    {"-pe", "--prvkey-enc ", applyCipher},
    {"-ecc", "--ecc-algo", applyCurve},
    {"-n", "--number-key", applyKeyNumber},
    {"-rand", "--random", applyRandom},
};

void applyOptions()
{
    for (const OptionEntry &entry : entries) {
        const auto *const command =
            std::find_if(std::begin(commands), std::end(commands), [&](const Command &candidate) {
                return isSame(entry.name, candidate.shortName) || isSame(entry.name, candidate.longName);
            });
        if (command != std::end(commands))
            command->apply(entry);
    }
    if (wrongParameterAES)
        refuseWithHelp("Error: wrong parameter with command -pe.\n");
    if (wrongParameterECC)
        refuseWithHelp("Error: wrong parameter with command -ecc.\n");
}

} // namespace

bool EndsTheRun(const QString &optionName)
{
    return answerTo(optionName) != nullptr;
}

void ParseCommandLine(QList<QByteArray> arguments)
{
    entries.clear();
    received = std::move(arguments);
    collectOptions();
    for (QByteArray &argument : received)
        Wipe(argument);
    checkNames();
    answerHelpAndVersion();
    applyOptions();
}

void WipeCommandLine()
{
    for (QByteArray &argument : received)
        Wipe(argument);
    for (OptionEntry &entry : entries) {
        Wipe(entry.name);
        for (QString &value : entry.values)
            Wipe(value);
    }
}
