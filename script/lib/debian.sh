# shellcheck shell=bash
# Debian's archive: for scripts that have sourced setup.sh.
# shellcheck disable=SC2034 # the needs are for the scripts that source it

debian_keyring=/usr/share/keyrings/debian-archive-keyring.gpg
needs_of_the_archive=(
    "Debian's keys   | file ../share/keyrings/${debian_keyring##*/} | debian-archive-keyring"
)

# The mirrors of this machine's package manager. Works even before the package lists have been read.
mirrors() {
    local mirror
    apt-get --print-uris update | sed -n "s|^'\\(.*\\)/dists/.*|\\1|p" | awk '!/security/ && !seen[$0]++' |
        while read -r mirror; do
            case $mirror in
            # A file of mirrors, one per line.
            mirror+file:*) grep -Eo '^[a-z]+://[^[:space:]]+' "/${mirror#mirror+file:}" ;;
            *) printf '%s\n' "$mirror" ;;
            esac
        done
}

# The package manager with package lists in a folder, separate from the machine's. Signatures are checked as usual.
private_apt() {
    local folder=$1
    shift
    apt-get -q \
        -o Dir::State="$folder/state" -o Dir::State::status="$folder/state/status" -o Dir::Cache="$folder/cache" \
        -o Dir::Etc::SourceList="$folder/sources.list" -o Dir::Etc::SourceParts=/dev/null \
        -o Dir::Etc::Preferences=/dev/null -o Dir::Etc::PreferencesParts=/dev/null \
        -o APT::Sandbox::User=root -o APT::Update::Error-Mode=any "$@"
}

# Reads the lists of a suite into a folder, for private_apt, from the first mirror that has the suite; prints the mirror.
read_lists() {
    local suite=$1 folder=$2 mirror
    mkdir -p "$folder/state/lists/partial" "$folder/cache/archives/partial" && touch "$folder/state/status" || return
    while read -r mirror; do
        printf 'deb [signed-by=%s] %s %s main\n' "$debian_keyring" "${mirror%/}" "$suite" >"$folder/sources.list"
        if private_apt "$folder" update >&2; then
            printf '%s\n' "${mirror%/}"
            return
        fi
    done < <(mirrors)
    stop "no mirror of this machine's package manager has the suite $suite"
}
