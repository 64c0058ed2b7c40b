# shellcheck shell=bash
# Debian's archive, and bare systems in folders: for scripts that have sourced setup.sh.
# shellcheck disable=SC2034,SC2154 # the needs are for the scripts that source it

debian_keyring=/usr/share/keyrings/debian-archive-keyring.gpg
needs_of_the_archive=(
    "Debian's keys   | file ../share/keyrings/${debian_keyring##*/} | debian-archive-keyring"
)

# The mirrors of this machine's own package lists, asked in a way that works also before the lists are read.
mirrors() {
    local mirror
    apt-get --print-uris update | sed -n "s|^'\\(.*\\)/dists/.*|\\1|p" | awk '!/security/ && !seen[$0]++' |
        while read -r mirror; do
            case $mirror in
            # A file of mirrors, one on a line.
            mirror+file:*) grep -Eo '^[a-z]+://[^[:space:]]+' "/${mirror#mirror+file:}" ;;
            *) printf '%s\n' "$mirror" ;;
            esac
        done
}

# The package manager with lists of its own in a folder, apart from the machine's. Signatures are checked as ever.
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
    stop "no mirror of this machine's package manager gave the suite $suite"
}

needs_of_bare_systems=(
    "debootstrap     | command debootstrap                     | debootstrap"
)

# In a mount namespace of its own, all mounts end with the script. Takes the script's arguments.
enter_own_mount_namespace() {
    ((EUID == 0)) || stop "only root can enter another system"
    if [[ ${KEYGEN_OWN_MOUNTS:-} != yes ]]; then
        KEYGEN_OWN_MOUNTS=yes exec unshare --mount --propagation private "$this_script" "$@"
    fi
}

# Fetches a bare system into a folder that is not there yet.
fetch_root() {
    local suite=$1 root=$2 mirror
    ensure "${needs_of_the_archive[@]}" "${needs_of_bare_systems[@]}"
    say "fetching a bare $suite"
    mirror=$(read_lists "$suite" "$root.lists" 2>"$root.output") || stop "failed: $(tail "$root.output")"
    debootstrap --variant=minbase --keyring="$debian_keyring" "$suite" "$root" "$mirror" >"$root.output" 2>&1 ||
        stop "failed: $(tail "$root.output")"
    rm -rf -- "$root.lists" "$root.output"
}

# A copy of a bare system that commands can run in.
copy_root() {
    cp -a --reflink=auto -- "$1" "$2"
    mount -t proc proc "$2/proc"
    mount --rbind /dev "$2/dev"
    cp -L /etc/resolv.conf "$2/etc/resolv.conf"
}

# Ends what still runs in the systems below a folder, and removes them. Works in a trap, too.
remove_roots() {
    local process
    for process in /proc/[0-9]*; do
        [[ $(readlink "$process/root") == "$1"/* ]] && kill -KILL "${process#/proc/}"
    done 2>/dev/null
    umount --recursive --lazy "$1"/*/proc "$1"/*/dev 2>/dev/null || true
    rm -rf --one-file-system -- "$1"
}

# The name that a system gives itself, and its version.
system_name() {
    sed -n 's/^PRETTY_NAME="\(.*\)"$/\1/p' "$1/etc/os-release"
}

system_version() {
    sed -n 's/^VERSION_ID="\(.*\)"$/\1/p' "$1/etc/os-release"
}
