#include "keygen/dialogue.h"

#include "keygen/console.h"
#include "keygen/key_paths.h"
#include "keygen/output_folders.h"
#include "keygen/password_rules.h"
#include "keygen/run_settings.h"
#include "keygen/secrets.h"
#include "keygen/standard_input.h"
#include "keygen/terminal.h"

#include <QStandardPaths>

#include <cstdlib>

namespace {

void showNotice()
{
    MessageOut("Corvane Key Generator [Version " + KeyGenVersion + "] <'-? for help>\n" +
                   "Copyright (C) Halvex. All rights reserved.\n",
               MSG_INFO);
}

void askFolder()
{
    MessageOut("Please enter Path for output files :\n ", MSG_PROMPT);
    MessageOut("<", MSG_INFO);
    MessageOut(absolutePath, MSG_INFO);
    MessageOut(">\n", MSG_INFO);
    const InputLine answer = ReadLine();
    if (answer.text.isEmpty())
        return;
    absolutePath = answer.text;
    if (answer.isTooLong || !CreateDirectoryPath(absolutePath)) {
        MessageOut("Error: Can not create path.", MSG_ERROR);
        std::exit(EXIT_FAILURE);
    }
}

/// True when the second of two choices was made. Only "1" and "2" are accepted.
bool choseSecond(const char *question, const char *questionAgain, const char *choices)
{
    MessageOut(question, MSG_PROMPT);
    MessageOut(choices, MSG_INFO);
    MessageOut("(1/2)?\n", MSG_PROMPT);
    for (;;) {
        const QString answer = ReadLine().text;
        if (answer == "1" || answer == "2")
            return answer == "2";
        MessageOut(questionAgain, MSG_REPROMPT);
        MessageOut(choices, MSG_INFO);
        MessageOut("(1/2)?\n", MSG_REPROMPT);
    }
}

void askKeyNumber()
{
    // The repeated question has two blanks and is on one line, unlike the first.
    if (!choseSecond("Please select number of packets: \n",
                     "Please select  number of packets: ", "1. 1 keypair packet   2. 8 keypair packets ")) {
        MessageOut("Generate 1 key packet !\n", MSG_SUCCESS);
        return;
    }
    isKeyGeneration = true;
    isKeyNumberCommand = true;
    numberKeys = packetSize;
    MessageOut("Generate 8 key packets !\n", MSG_SUCCESS);
}

/// Reads `password`; false when it is refused. The engine takes UTF-8 up to its first zero byte: a password
/// that would not reach it as typed is refused too, because nobody could open a key encrypted under anything
/// else.
bool readPassword()
{
    const InputLine line = ReadLine();
    password = line.text;
    if (checkPassword(password) && line.isUtf8 && !password.contains(QChar(0)))
        return true;
    Wipe(password);
    return false;
}

/// Reads a line; true when it repeats `password`.
bool readPasswordAgain()
{
    InputLine again = ReadLine();
    const bool isSame = again.isUtf8 && again.text == password;
    Wipe(again.text);
    return isSame;
}

/// Asks for one password until it is accepted and was typed the same way twice. `which` follows the word
/// "Password" in the prompts; `mismatch` is printed when the two differ.
void askPassword(const QString &which, const QString &mismatch)
{
    for (;;) {
        MessageOut("Please enter Password" + which + "\n", MSG_PROMPT);
        while (!readPassword())
            MessageOut("Please enter your Password" + which + "\n", MSG_PROMPT);
        MessageOut("Please re-enter your Password" + which + "\n", MSG_PROMPT);
        if (readPasswordAgain())
            break;
        MessageOut(mismatch, MSG_ERROR);
        Wipe(password);
    }
    passwordTable.append(password);
}

void askPasswords()
{
    if (passwordOK)
        return;
    if (numberKeys == 1) {
        askPassword("", "Error: password doesn't match\n");
    } else {
        for (int i = 0; i < packetSize; ++i) {
            const QString which = " [" + QString::number(i) + "]";
            askPassword(which, "Error: Password" + which + " doesn't match\n");
        }
    }
    passwordOK = true;
}

void composePaths()
{
    publicKeyPath = absolutePath;
    if (!publicKeyPath.endsWith('/'))
        publicKeyPath.append('/');
    publicKeyPath.append(defaultPublicKeyName);
    // Always adds a separator, even after a folder that ends with one: the test is of the public key's path,
    // which no longer ends with '/'. This is intended: the doubled separator names the same file, and the
    // path has always been shown this way.
    privateKeyPath = absolutePath;
    if (!publicKeyPath.endsWith('/'))
        privateKeyPath.append('/');
    privateKeyPath.append(defaultPrivateKeyName);
    hashPath = absolutePath;
    if (!hashPath.endsWith('/'))
        hashPath.append('/');
    hashPath.append(defaultHashName);
}

} // namespace

void RunDialogue()
{
    showNotice();
    absolutePath = QStandardPaths::writableLocation(QStandardPaths::HomeLocation) + "/Corvane_KeyGen/";
    MessageOut("Interactive mode...\n", MSG_SUCCESS);
    askFolder();
    askKeyNumber();
    {
        const HiddenEntry hidden;
        askPasswords();
    }
    brainpoolP256t1 = choseSecond(
        "Please select algorithm: ", "Please select algorithm: ", "1. prime256v1   2. brainpoolP256t1 ");
    aes128 = choseSecond("Please select encrypting algorithm: ", "Please select encrypting algorithm: ",
                         "1. aes256   2. aes128 ");
    composePaths();
}
