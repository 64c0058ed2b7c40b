#!/bin/sh
# Checks the three files of a key pair with the openssl tool:
#   check-pair.sh PRIVATE.pem PUBLIC.pem HASH.bin [options of openssl pkey, such as -passin file:PASSWORD_FILE]
# Without -passin, openssl asks for the password.
set -eu
private=$1 public=$2 hash=$3
shift 3

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

differs() {
    echo "$1" >&2
    exit 1
}

# The private key opens, is sound, and belongs to the public key. OpenSSL 1.1.1 ends with 0 over an unsound key, too.
if ! openssl pkey -in "$private" "$@" -check -noout >"$work/report" || ! grep -qx 'Key is valid' "$work/report"; then
    differs "$private: not a sound private key"
fi
openssl pkey -in "$private" "$@" -pubout -out "$work/public.pem"
cmp -s "$work/public.pem" "$public" || differs "$public: not the public key of $private"

# The encoding of a public key ends with X and Y, 32 bytes each. Their SHA-256 is the hash file.
openssl pkey -pubin -in "$public" -outform DER -out "$work/public.der"
tail -c 64 "$work/public.der" | openssl dgst -sha256 -binary >"$work/hash.bin"
cmp -s "$work/hash.bin" "$hash" || differs "$hash: not the hash of $public"

echo "$private, $public, $hash: they belong together"
