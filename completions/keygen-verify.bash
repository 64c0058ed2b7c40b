# shellcheck shell=bash
# Completion of keygen-verify for bash. Needs only bash.

_keygen_verify() {
    local current=${COMP_WORDS[COMP_CWORD]} previous='' word names=0
    COMPREPLY=()
    # How many names of things to check come before the word.
    for word in "${COMP_WORDS[@]:1:COMP_CWORD-1}"; do
        [[ $word == -* || $previous == --passwords ]] || ((names++))
        previous=$word
    done

    if [[ $previous == --passwords ]]; then
        compopt -o filenames
        mapfile -t COMPREPLY < <(compgen -f -- "$current")
        return
    fi
    if [[ $current == -* ]]; then
        ((names)) || mapfile -t COMPREPLY < <(
            compgen -W '--passwords --public-only --packet --help --version' -- "$current"
        )
        return
    fi
    compopt -o filenames
    case $names in
    0 | 1) _keygen_verify_files .pem "$current" ;;
    2) _keygen_verify_files .bin "$current" ;;
    esac
}

# Folders, and files whose name ends in $1.
_keygen_verify_files() {
    mapfile -t COMPREPLY < <(
        compgen -d -- "$2"
        compgen -f -X "!*$1" -- "$2" | while IFS= read -r name; do
            [[ -d $name ]] || printf '%s\n' "$name"
        done
    )
}

complete -F _keygen_verify keygen-verify
