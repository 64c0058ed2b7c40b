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

#include <QByteArray>
#include <QCoreApplication>
#include <QList>

#include <cstdlib>

int main(int argc, char *argv[])
{
    PrepareProcess();
    // Taken as received: the application object removes options of its own from the vector.
    const QList<QByteArray> arguments(argv + qMin(argc, 1), argv + argc);

    QCoreApplication application(argc, argv);
    QCoreApplication::setApplicationName("Corvane Key Generator");
    QCoreApplication::setApplicationVersion(KeyGenVersion);
    QCoreApplication::setOrganizationName("Halvex");

    ShowBanner();
    if (!arguments.isEmpty()) {
        ParseCommandLine(arguments);
        CompleteKeyPaths();
        CheckPasswords();
    } else {
        RunDialogue();
    }

    EC_Crypto engine;
    if (isKeyGeneration)
        GenerateKeyPackets(engine);
    if (isRandomCmd)
        GenerateRandomData(engine);
    std::exit(EXIT_SUCCESS);
}
