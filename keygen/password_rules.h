// The rules for passwords, checked before a private key is encrypted.
#pragma once

#include <QString>

/// True when `candidate` has 4 to 1023 UTF-16 code units; otherwise prints why not. Never ends the process.
bool checkPassword(QString candidate);

/// Checks that the number of passwords fits the number of key pairs, and each password that will be used. A
/// refusal prints its messages and the help text, and ends the process with status 1.
void EnforcePasswordRules();
