#include "keygen/key_generation.h"

#include "keygen/console.h"
#include "keygen/folder_lock.h"
#include "keygen/hash_table.h"
#include "keygen/output_folders.h"
#include "keygen/run_settings.h"
#include "src/ec_crypto.h"
#include "src/openssl_owners.h"

#include <QFileInfo>
#include <QStringList>

#include <openssl/crypto.h>
#include <openssl/obj_mac.h>
#include <openssl/sha.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>

namespace {

const unsigned char *bytesOf(const QByteArray &text)
{
    return reinterpret_cast<const unsigned char *>(text.constData());
}

/// The UTF-8 form of a password, wiped when it is no longer needed.
class PasswordBytes {
public:
    explicit PasswordBytes(const QString &text) : bytes(text.toUtf8()) {}
    ~PasswordBytes() { OPENSSL_cleanse(bytes.data(), static_cast<std::size_t>(bytes.size())); }
    PasswordBytes(const PasswordBytes &) = delete;
    PasswordBytes &operator=(const PasswordBytes &) = delete;

    const unsigned char *get() const { return bytesOf(bytes); }

private:
    QByteArray bytes;
};

bool generatePair(EC_Crypto &engine, const KeyFiles &files, const QString &pairPassword)
{
    const auto cipher = aes128 ? AES128_CBC : AES256_CBC;
    const PasswordBytes passwordBytes(pairPassword);
    const bool generated =
        engine.GenerateKeys(bytesOf(files.privateKey.toUtf8()), bytesOf(files.publicKey.toUtf8()),
                            bytesOf(files.hash.toUtf8()), passwordBytes.get(), cipher) == 1;
    if (!generated)
        MessageOut("Error: An error occured while generating key files\n", MSG_ERROR);
    return generated;
}

void require(bool condition, const char *error)
{
    if (condition)
        return;
    MessageOut(error, MSG_ERROR);
    std::exit(EXIT_FAILURE);
}

void requireFiles(const KeyFiles &files)
{
    require(QFileInfo::exists(files.privateKey), "Error: private key file path does not exist\n");
    require(QFileInfo::exists(files.publicKey), "Error: public key file path does not exist\n");
    require(QFileInfo::exists(files.hash), "Error: public hash key file path does not exist\n");
}

void printFile(const char *label, const QString &path)
{
    MessageOut(label, MSG_INFO);
    MessageOut(path + "\n", MSG_INFO);
}

void reportPair(const QString &success, const KeyFiles &files)
{
    MessageOut(success, MSG_SUCCESS);
    printFile("+ public key:      ", files.publicKey);
    printFile("+ private key:     ", files.privateKey);
    printFile("+ public hash key: ", files.hash);
}

void generateOnePair(EC_Crypto &engine)
{
    const KeyFiles files = {privateKeyPath, publicKeyPath, hashPath};
    if (!generatePair(engine, files, password))
        return;
    requireFiles(files);
    reportPair("Keys generated successfully.\n", files);
    std::fflush(stdout);
}

/// Replaces the zeros of a table entry with the public key read back from its file. An entry is hashed as it
/// is, even for a pair that failed: its file may be an older one, hold another kind of key, or hold none.
void readBackPublicKey(EC_Crypto &engine, const QString &path, unsigned char *entry)
{
    unsigned char *binaryForm = nullptr;
    std::size_t length = 0;
    const int status = engine.GetPubKeyBin(bytesOf(path.toUtf8()), &binaryForm, &length);
    const BufferOwner owner(binaryForm);
    // The buffer is never shorter than a point, even where the binary form is.
    if (status == 1)
        std::copy_n(binaryForm, publicPointSize, entry);
}

void generatePacketPair(EC_Crypto &engine, int index)
{
    const KeyFiles files = NumberedKeyFiles(index);
    if (generatePair(engine, files, passwordOf(index))) {
        requireFiles(files);
        reportPair("Keys packet " + QString::number(index) + " generated successfully.\n", files);
        MessageOut(QString(60, '-') + "\n", MSG_INFO);
        std::fflush(stdout);
    }
    readBackPublicKey(engine, files.publicKey, pubKeysTable[static_cast<std::size_t>(index)]);
}

void writeTableHash(EC_Crypto &engine)
{
    createHashTable();
    calculateTableHashValue();
    const QString path = TableHashPath();
    // If the hash could not be written, an older file or a folder at its path does not count.
    const bool saved =
        engine.SaveHashTableHash(tableHashValue, SHA256_DIGEST_LENGTH, bytesOf(path.toUtf8())) == 1;
    require(saved && QFileInfo::exists(path), "Error: Hash hashes file path does not exist\n");
    MessageOut("Hash of table of Hash of {algorithm + public Key} file generated successfully.\n",
               MSG_SUCCESS);
    printFile("+ Hash Hash: ", path);
}

void generatePacket(EC_Crypto &engine)
{
    // The tables live until the process ends.
    for (unsigned char *&entry : pubKeysTable)
        entry = new unsigned char[hashRecordSize]();
    for (int i = 0; i < numberKeys; ++i)
        generatePacketPair(engine, i);
    writeTableHash(engine);
}

/// All files that the run may write.
QStringList filesOfTheRun()
{
    // Appended one by one: a list that is constructed from its elements does not notice a failed allocation.
    QStringList paths;
    if (!isKeyNumberCommand) {
        paths << privateKeyPath << publicKeyPath << hashPath;
        return paths;
    }
    paths << TableHashPath();
    for (int i = 0; i < numberKeys; ++i) {
        const KeyFiles files = NumberedKeyFiles(i);
        paths << files.privateKey << files.publicKey << files.hash;
    }
    return paths;
}

} // namespace

void GenerateKeyFiles(EC_Crypto &engine)
{
    CreateOutputFolders();
    const FolderLock lock(filesOfTheRun());
    if (engine.SetCurveNID(brainpoolP256t1 ? NID_brainpoolP256t1 : NID_X9_62_prime256v1) != 1)
        std::exit(EXIT_FAILURE);
    if (isKeyNumberCommand)
        generatePacket(engine);
    else
        generateOnePair(engine);
}
