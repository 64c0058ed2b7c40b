#include "keygen/help.h"

#include "keygen/console.h"
#include "keygen/run_settings.h"

namespace {

// One message each, as printed after the heading. The spacing is part of the text. The hash option and the
// cipher option are listed under long names that are accepted and then ignored, and the curves in the
// opposite order to the numbers that -ecc takes: scripts and manuals in the field quote these lines, so they
// stay as they are.
constexpr const char *helpMessages[] = {
    "--help        -h   -?       : Show help\n",
    "--version          -v       : Display this program version\n",
    "--password         -pwd     : Password of the private keys <Mondatory>\n",
    "                              Note: you must include 8 passwords when you would like to generate 8 "
    "keypairs\n",
    "                              Syntax 1: -pwd <Password>\n",
    "                              Syntax 2: -pwd <Password1> <Password2> <Password3> <Password4>\n",
    "                                             <Password5> <Password6> <Password7> <Password8>\n",
    "--private-key      -prvk    : Private key file path\n"
    "                              Syntax: -prvk <privateKey_file_path.pem>\n",
    "--public-key       -pubk    : Public key file path\n"
    "                              Syntax: -pubk <publicKey_file_path.pem>\n",
    "--public-key-hash  -hash    : Hash image file path\n"
    "                              Syntax: -hash <hash_file_path.bin>\n",
    "--absolute-path    -abs     : Absolute path for output files\n"
    "                              Syntax: -abs <folder_path>\n",
    "--prvkey-enc       -pe      : Encrypting private key algorithm\n"
    "                              Syntax: -pe aes128\n"
    "                              Syntax: -pe aes256 <Default>\n",
    "--ecc-algo         -ecc     : ECC algorithm for keys generation:\n"
    "                              1. prime256v1   2. brainpoolP256t1\n"
    "                              Syntax: -ecc 1 <Default>\n"
    "                              Syntax: -ecc 2\n\n",
    "--number-key       -n       : Generate number of key pairs {1 or 8}\n"
    "                              with Hash of table of Hash of (algo + publicKey) file\n"
    "                              Syntax: -n <number>\n",
    "--random           -rand    : Generate random data and save the result in a binary file\n"
    "                              Syntax: -rand <size_bytes> <output_path.bin>\n",
};

} // namespace

void ShowBanner()
{
    // The name differs from the application's on purpose: the banner has always had it, and scripts recognise
    // the output by it. Around it: four blanks, bold until the reset at the end of the message, two blanks,
    // 67 hyphens.
    const QString rule = "    \x1B[01m  " + QString(67, '-') + "\n";
    MessageOut(rule, MSG_TITLE);
    MessageOut(QString(22, ' ') + "Orvelle Key Generator " + KeyGenVersion + QString(30, ' ') + "\n",
               MSG_TITLE);
    MessageOut(rule + "\n", MSG_TITLE);
}

void ShowHelp()
{
    MessageOut("Available commands:\n\n", MSG_SUCCESS);
    for (const char *message : helpMessages)
        MessageOut(message, MSG_PROMPT);
}

void ShowVersion()
{
    MessageOut("Version: " + KeyGenVersion + "\n", MSG_INFO);
}
