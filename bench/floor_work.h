// The cryptographic and file work of a run with bare libcrypto: no messages, no settings, no checks of
// results beyond stopping at a failure.
#pragma once

/// Generates `count` key pairs on the curve `nid` into the folder `folder`, private keys under AES-256-CBC
/// and the passwords "password 0" onwards, by the library's plain calls: generic key generation, a check of
/// each key, each public key of a packet read back from its file. With `count` 8 the table hash too.
void DoPlainWork(int nid, int count, const char *folder);

/// The same files by the cheapest calls the library has: one curve object, nothing read back. The keys are
/// checked.
void DoLeanWork(int nid, int count, const char *folder);
