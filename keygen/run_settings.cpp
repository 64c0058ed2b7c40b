#include "keygen/run_settings.h"

#include "keygen/secrets.h"

int numberKeys = 1;
int numberPassword = 1;
bool isKeyGeneration = true;
bool isKeyNumberCommand = false;
bool isPasswordCmd = false;
bool isRandomCmd = false;

// Constructed in this order, and destroyed in reverse at the end of the process.
QString randPath;
QString KeyGenVersion = "v" KEYGEN_VERSION;
QString password;
QString publicKeyPath;
QString privateKeyPath;
QString hashPath;
QString absolutePath;
QString NewPath;
QString tmpPath;
QFileInfo InfoPath;
QString tempabsolutePath;
QList<QString> passwordTable;

// "--public-key-hash" and "--prvkey-enc" are accepted and have no effect: see command_line.cpp.
const std::array<QString, optionNames> tab_command_name = {
    "-prvk",        "--private-key",
    "-pubk",        "--public-key",
    "-hash",        "--public-key-hash",
    "-abs",         "--absolute-path",
    "--password",   "-pwd",
    "--prvkey-enc", "-pe",
    "--ecc-algo",   "-ecc",
    "--help",       "-h",
    "-?",           "--version",
    "-v",           "--number-key",
    "-n",           "-rand",
    "--random",
};

bool passwordOK = false;
int randSize = 0;
bool aes128 = false;
bool brainpoolP256t1 = false;
bool wrongParameterAES = false;
bool wrongParameterECC = false;
bool true_command = false;

std::array<unsigned char *, packetSize> pubKeysTable = {};
std::array<unsigned char *, packetSize> newPubKeysHashTable = {};
unsigned char *tableHashValue = nullptr;

QString passwordOf(int index)
{
    return passwordTable.value(index);
}

void WipePasswords()
{
    Wipe(password);
    for (QString &entry : passwordTable)
        Wipe(entry);
    passwordTable.clear();
}
