#include "keygen/password_rules.h"

#include "keygen/console.h"
#include "keygen/help.h"
#include "keygen/run_settings.h"
#include "keygen/secrets.h"

#include <cstdlib>

namespace {

constexpr int shortestPassword = 4;
constexpr int longestPassword = 1023;

[[noreturn]] void refuseWithHelp()
{
    ShowHelp();
    std::exit(EXIT_FAILURE);
}

[[noreturn]] void refuseCount(const char *expectation)
{
    MessageOut("Wrong parameter with command --password/-pwd, permitted password number must be respected.\n",
               MSG_ERROR);
    MessageOut(expectation, MSG_ERROR);
    refuseWithHelp();
}

void checkCount()
{
    if (numberKeys == packetSize && numberPassword != packetSize)
        refuseCount("You are trying to generate 8 keypairs, you need to mention consecutive 8 passwords.\n");
    if (numberKeys == 1 && numberPassword >= 2)
        refuseCount("You are trying to generate 1 keypair, you need to mention just 1 password.\n");
}

void checkEachPassword()
{
    if (numberPassword == 1) {
        if (!checkPassword(password))
            refuseWithHelp();
        return;
    }
    for (int i = 0; i < numberKeys; ++i) {
        if (!checkPassword(passwordOf(i)))
            refuseWithHelp();
    }
}

} // namespace

bool checkPassword(QString candidate)
{
    if (candidate.isEmpty()) {
        MessageOut("Error: missing -pwd (--password) parametre : password is mandatory\n", MSG_ERROR);
        return false;
    }
    if (candidate.size() < shortestPassword) {
        MessageOut("Error: password must be more than 3 caracters\n", MSG_ERROR);
        QString shown = QString("Error: incorrect password : %1\n").arg(candidate);
        MessageOut(shown, MSG_ERROR);
        Wipe(shown);
        return false;
    }
    if (candidate.size() > longestPassword) {
        MessageOut("Error: password must be less than 1024 caracters\n", MSG_ERROR);
        return false;
    }
    return true;
}

void EnforcePasswordRules()
{
    if (isKeyNumberCommand)
        checkCount();
    if (isPasswordCmd)
        checkEachPassword();
}
