// The cost of a Qt Core program that loads libcrypto and prints three lines.
#include <QCoreApplication>

#include <openssl/crypto.h>

#include <cstdio>

int main(int argc, char *argv[])
{
    const QCoreApplication application(argc, argv);
    for (int line = 0; line < 3; ++line)
        std::puts(OpenSSL_version(OPENSSL_VERSION));
}
