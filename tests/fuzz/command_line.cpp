// The command line, from its bytes to complete and checked run settings. An input contains the arguments,
// separated by zero bytes.
#include "keygen/command_line.h"
#include "keygen/key_paths.h"
#include "keygen/password_rules.h"
#include "keygen/process.h"
#include "keygen/run_settings.h"
#include "tests/fuzz/fuzz_target.h"

#include <algorithm>
#include <mutex>
#include <string>
#include <vector>

namespace {

bool mentions(const QList<QByteArray> &arguments, std::initializer_list<const char *> names)
{
    return std::any_of(arguments.begin(), arguments.end(), [&](const QByteArray &argument) {
        return std::any_of(names.begin(), names.end(), [&](const char *name) {
            return argument.compare(name, Qt::CaseInsensitive) == 0;
        });
    });
}

bool hasAcceptedLength(const QString &text)
{
    return text.size() >= 4 && text.size() <= 1023;
}

void requireCheckedPasswords()
{
    Require(!isKeyNumberCommand || (numberKeys == 8) == (numberPassword == 8),
            "a packet has eight passwords, one pair does not");
    if (!isPasswordCmd)
        return;
    if (numberPassword == 1)
        Require(hasAcceptedLength(password), "the single password has an accepted length");
    for (int i = 0; numberPassword != 1 && i < numberKeys; ++i)
        Require(hasAcceptedLength(passwordOf(i)), "each password that is used has an accepted length");
}

void requireCompletePaths(const QList<QByteArray> &arguments)
{
    const std::initializer_list<const QString *> paths = {&publicKeyPath, &privateKeyPath, &hashPath};
    const auto all = [&](auto condition) {
        return std::all_of(paths.begin(), paths.end(), [&](const QString *path) { return condition(*path); });
    };
    if (!isKeyGeneration)
        Require(all([](const QString &path) { return path.isEmpty(); }),
                "no keys are generated without a path");
    else
        Require(all([](const QString &path) { return !path.isEmpty(); }), "generated keys have all paths");
    if (absolutePath.isEmpty())
        return;
    Require(mentions(arguments, {"-abs", "--absolute-path"}), "a base directory was given");
    Require(absolutePath.endsWith('/'), "the base directory ends with a separator");
    Require(all([](const QString &path) { return path.startsWith(absolutePath) && !path.endsWith('/'); }),
            "each path is a file under the base directory");
}

void requireCompleteSettings(const QList<QByteArray> &arguments)
{
    Require(std::all_of(arguments.begin(), arguments.begin() + qMin<qsizetype>(1, arguments.size()),
                        [](const QByteArray &argument) { return argument.startsWith('-'); }),
            "the first argument is an option");
    Require(numberKeys == 1 || numberKeys == 8, "one pair or a packet");
    Require(isKeyNumberCommand == mentions(arguments, {"-n", "--number-key"}), "a number was given");
    Require(isPasswordCmd == mentions(arguments, {"-pwd", "--password"}), "a password was given");
    Require(isRandomCmd == mentions(arguments, {"-rand", "--random"}), "random data was requested");
    Require(!isRandomCmd || randPath.endsWith(".bin"), "random data goes to a .bin file");
    Require(!wrongParameterAES && !wrongParameterECC, "no wrong value is accepted");
    requireCompletePaths(arguments);
    requireCheckedPasswords();
}

/// The arguments as the program reads them from the vector that it receives: copies, which are wiped after
/// they are read.
QList<QByteArray> takenFromVector(const QList<QByteArray> &arguments)
{
    std::vector<std::string> vector = {"keygen"};
    for (const QByteArray &argument : arguments)
        vector.push_back(argument.toStdString());
    std::vector<char *> pointers;
    for (std::string &argument : vector)
        pointers.push_back(argument.data());
    QList<QByteArray> taken = TakeArguments(static_cast<int>(pointers.size()), pointers.data());
    Require(taken == arguments, "the arguments are returned unchanged");
    for (std::size_t i = 1; i < vector.size(); ++i)
        Require(vector[i].find_first_not_of('\0') == std::string::npos, "the vector is cleared");
    return taken;
}

void requireProperties(const QList<QByteArray> &arguments)
{
    const RunEnd end = RunOn("", [&] {
        ParseCommandLine(takenFromVector(arguments));
        CompleteKeyPaths();
        EnforcePasswordRules();
    });
    Require(end != RunEnd::OutOfInput, "the command line asks no questions");
    const bool isAnswered = std::any_of(arguments.begin(), arguments.end(), [](const QByteArray &argument) {
        return EndsTheRun(QString::fromUtf8(argument));
    });
    Require(end != RunEnd::Answered || isAnswered, "before the run, only help and version end with success");
    if (end == RunEnd::Completed) {
        Require(!isAnswered, "help and version are answered");
        requireCompleteSettings(arguments);
    }
}

/// Tries each option with a value, so that no input has to be added for a new one.
void tryEachOption()
{
    for (const QString &name : tab_command_name)
        requireProperties({name.toUtf8(), "value"});
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    static std::once_flag once;
    std::call_once(once, tryEachOption);
    const QByteArray bytes(reinterpret_cast<const char *>(data), static_cast<qsizetype>(size));
    requireProperties(bytes.split('\0'));
    return 0;
}
