// The cryptographic and file work of a run with libcrypto alone: no messages, no settings, and no checks of
// results except to stop at a failure.
#pragma once

/// Generates `count` key pairs on the curve `nid` into the folder `folder`, private keys under AES-256-CBC
/// and the passwords "password 0" onwards, by the library's ordinary calls: generic key generation, a check
/// of each key, each public key of a packet read back from its file. If `count` is 8, also the table hash.
void DoPlainWork(int nid, int count, const char *folder);

/// The same files by the cheapest calls the library has: one curve object, nothing read back. The keys are
/// checked.
void DoLeanWork(int nid, int count, const char *folder);
