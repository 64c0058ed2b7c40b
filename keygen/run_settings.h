// The settings of the run: filled once, by the command line or by the dialogue, and read by the later phases.
// A process performs exactly one run, so they are plain global variables.
#pragma once

#include <QFileInfo>
#include <QList>
#include <QString>

#include <array>
#include <cstddef>

/// Key pairs in a packet, and the capacity of its tables.
constexpr int packetSize = 8;

extern int numberKeys;          ///< key pairs to generate: 1 or 8
extern int numberPassword;      ///< values given to the last -pwd; 1 when it is absent
extern bool isKeyGeneration;    ///< key pairs are to be generated
extern bool isKeyNumberCommand; ///< a packet was asked for, with -n or in the dialogue
extern bool isPasswordCmd;      ///< -pwd was given
extern bool isRandomCmd;        ///< -rand was given

extern QString randPath;             ///< random data file
extern QString KeyGenVersion;        ///< version string of the tool
extern QString password;             ///< password of the one pair
extern QString publicKeyPath;        ///< public key PEM file
extern QString privateKeyPath;       ///< encrypted private key PEM file
extern QString hashPath;             ///< public key hash file
extern QString absolutePath;         ///< folder given with -abs, or in the dialogue
extern QString NewPath;              ///< scratch: the folder part of a path
extern QString tmpPath;              ///< part of the run settings; no phase reads it
extern QFileInfo InfoPath;           ///< scratch: the relative-path test
extern QString tempabsolutePath;     ///< part of the run settings; no phase reads it
extern QList<QString> passwordTable; ///< passwords in the order given; entries may be missing, see passwordOf

/// The option names that the command line accepts, in any letter case.
constexpr std::size_t optionNames = 23;
extern const std::array<QString, optionNames> tab_command_name;

extern bool passwordOK;        ///< the dialogue's passwords were confirmed
extern int randSize;           ///< size of the random data file in bytes
extern bool aes128;            ///< private keys under AES-128-CBC; false: AES-256-CBC
extern bool brainpoolP256t1;   ///< keys on brainpoolP256t1; false: prime256v1
extern bool wrongParameterAES; ///< -pe received an unaccepted value
extern bool wrongParameterECC; ///< -ecc received an unaccepted value
extern bool true_command;      ///< scratch: an option name was found in tab_command_name

/// Per key pair of a packet, a buffer whose first 64 bytes are the public key's binary form.
extern std::array<unsigned char *, packetSize> pubKeysTable;
/// Per key pair of a packet, the 32-byte hash of its record.
extern std::array<unsigned char *, packetSize> newPubKeysHashTable;
/// The 32-byte hash of the table of hashes.
extern unsigned char *tableHashValue;

/// Entry `index` of passwordTable; a missing entry counts as an empty password.
QString passwordOf(int index);

/// Wipes the passwords.
void WipePasswords();
