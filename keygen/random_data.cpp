#include "keygen/random_data.h"

#include "keygen/console.h"
#include "keygen/run_settings.h"
#include "src/ec_crypto.h"

#include <cstdlib>

void GenerateRandomData(EC_Crypto &engine)
{
    MessageOut("\nRandom Data Generation : \n", MSG_TITLE);
    MessageOut("    Size        : " + QString::number(randSize) + " Bytes\n", MSG_INFO);
    MessageOut("    Output path : " + randPath + "\n", MSG_INFO);

    const QByteArray path = randPath.toUtf8();
    if (engine.generateRandom(randSize, reinterpret_cast<const unsigned char *>(path.constData())) != 0) {
        MessageOut("\nFailed to create random data file : " + randPath, MSG_ERROR);
        std::exit(EXIT_FAILURE);
    }
    MessageOut("\nRandom data generated successfully : " + randPath + "\n", MSG_SUCCESS);
}
