#include "tests/support/reset_settings.h"

#include "keygen/run_settings.h"

void ResetSettings()
{
    numberKeys = 1;
    numberPassword = 1;
    isKeyGeneration = true;
    isKeyNumberCommand = false;
    isPasswordCmd = false;
    isRandomCmd = false;
    for (QString *text : {&randPath, &password, &publicKeyPath, &privateKeyPath, &hashPath, &absolutePath,
                          &NewPath, &tmpPath, &tempabsolutePath})
        text->clear();
    KeyGenVersion = "v2.16.0";
    InfoPath = QFileInfo();
    passwordTable.clear();
    passwordOK = false;
    randSize = 0;
    aes128 = false;
    brainpoolP256t1 = false;
    wrongParameterAES = false;
    wrongParameterECC = false;
    true_command = false;
    pubKeysTable = {};
    newPubKeysHashTable = {};
    tableHashValue = nullptr;
}
