# shellcheck shell=bash
# Completion of keygen for bash. Needs only bash.

# Leaves out --public-key-hash and --prvkey-enc: keygen accepts them and ignores them.
_keygen_options='-pwd --password -prvk --private-key -pubk --public-key -hash -abs --absolute-path
    -pe -ecc --ecc-algo -n --number-key -rand --random -h -? --help -v --version'

# Candidates from the words in $1.
_keygen_words() {
    mapfile -t COMPREPLY < <(compgen -W "$1" -- "$2")
}

# Folders, and files whose name ends in $1.
_keygen_files() {
    compopt -o filenames
    mapfile -t COMPREPLY < <(
        compgen -d -- "$2"
        [[ -n $1 ]] && compgen -f -X "!*$1" -- "$2" | while IFS= read -r name; do
            [[ -d $name ]] || printf '%s\n' "$name"
        done
    )
}

_keygen() {
    local current=${COMP_WORDS[COMP_CWORD]} position=$((COMP_CWORD - 1)) count=1
    COMPREPLY=()
    if [[ $current == -* ]]; then
        _keygen_words "$_keygen_options" "$current"
        return
    fi

    # The option that the word belongs to, and which of its values the word is.
    while ((position > 0)) && [[ ${COMP_WORDS[position]} != -* ]]; do
        ((position--, count++))
    done
    local option=
    ((position > 0)) && option=${COMP_WORDS[position],,}

    case $option:$count in
    -prvk:1 | --private-key:1 | -pubk:1 | --public-key:1) _keygen_files .pem "$current" ;;
    -hash:1 | -rand:2 | --random:2) _keygen_files .bin "$current" ;;
    -abs:1 | --absolute-path:1) _keygen_files '' "$current" ;;
    -pe:1) _keygen_words 'aes128 aes256' "$current" ;;
    -ecc:1 | --ecc-algo:1) _keygen_words 'prime256v1 brainpoolP256t1' "$current" ;;
    -n:1 | --number-key:1) _keygen_words '1 8' "$current" ;;
    # A password, a size, or a value that is ignored.
    -pwd:[1-8] | --password:[1-8] | -rand:1 | --random:1 | --public-key-hash:1 | --prvkey-enc:1) ;;
    *) [[ -z $current ]] && _keygen_words "$_keygen_options" '' ;;
    esac
}

complete -F _keygen keygen
