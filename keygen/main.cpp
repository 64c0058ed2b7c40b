// One run: settings from the command line or the dialogue, then keys, then random data.
#include "keygen/command_line.h"
#include "keygen/dialogue.h"
#include "keygen/help.h"
#include "keygen/key_generation.h"
#include "keygen/key_paths.h"
#include "keygen/password_rules.h"
#include "keygen/process.h"
#include "keygen/random_data.h"
#include "keygen/run_settings.h"
#include "src/ec_crypto.h"

#include <QCoreApplication>

#include <cstdlib>
#include <utility>

namespace {

/// A run may end anywhere, usually on an error; no secret may be left in memory.
void wipeSecrets()
{
    WipeCommandLine();
    WipePasswords();
    WipeOutputBuffer();
}

} // namespace

int main(int argc, char *argv[])
{
    QList<QByteArray> arguments = TakeArguments(argc, argv);
    PrepareProcess();
    std::atexit(wipeSecrets);

    QCoreApplication application(argc, argv);
    QCoreApplication::setApplicationName("Corvane Key Generator");
    QCoreApplication::setApplicationVersion(KeyGenVersion);
    QCoreApplication::setOrganizationName("Halvex");

    ShowBanner();
    if (!arguments.isEmpty()) {
        ParseCommandLine(std::move(arguments));
        CompleteKeyPaths();
        EnforcePasswordRules();
    } else {
        RunDialogue();
    }

    EC_Crypto engine;
    if (isKeyGeneration)
        GenerateKeyFiles(engine);
    WipePasswords();
    if (isRandomCmd)
        GenerateRandomData(engine);
    std::exit(EXIT_SUCCESS);
}
