# shellcheck shell=bash
# shellcheck disable=SC2034 # some variables are for the scripts that source this
# Set-up that the scripts share: what the machine must have, and how the build folder is made.

# The script that was called, and the top of its tree, with links resolved.
this_script=$(readlink -f -- "$0")
tree=$(CDPATH='' cd -P -- "$(dirname -- "$(readlink -f -- "${BASH_SOURCE[0]}")")/../.." && pwd) || exit

# The preset that is built, and its folder. A script that builds another one sets both.
preset=default
build=$tree/build

# Each need: its name for the user | how to check for it | the package that provides it.
needs_of_the_build=(
    "a C++ compiler  | command c++ g++ clang++                 | g++"
    "CMake           | command cmake                           | cmake"
    "Ninja or make   | command ninja make                      | ninja-build"
    "Qt 6 Core       | file cmake/Qt6Core/Qt6CoreConfig.cmake  | qt6-base-dev"
    "OpenSSL         | header openssl/evp.h                    | libssl-dev"
)
needs_of_the_tests=(
    "GoogleTest      | file cmake/GTest/GTestConfig.cmake      | libgtest-dev"
    "GoogleMock      | header gmock/gmock.h                    | libgmock-dev"
    "openssl         | command openssl                         | openssl"
    "certtool        | command certtool                        | gnutls-bin"
    "cryptography for Python | python cryptography             | python3-cryptography"
    "valgrind        | command valgrind                        | valgrind"
    "pkg-config      | command pkg-config                      | pkgconf"
    "busybox         | command busybox                         | busybox"
    "GNU parallel    | command parallel                        | parallel"
)
# For the tests of the manual, and of the completions in these shells. If they cannot be installed, the other tests
# still run.
needs_of_the_documents=(
    "man             | command man                             | man-db"
    "groff           | command groff                           | groff"
    "mandoc          | command mandoc                          | mandoc"
    "completion for bash | file ../share/bash-completion/bash_completion | bash-completion"
    "zsh             | command zsh                             | zsh"
    "fish            | command fish                            | fish"
)

say() {
    printf '%s: %s\n' "${this_script#"$tree"/}" "$*" >&2
}

stop() { say "$@"; exit 1; }

# A cheap check without the package manager, because it runs at every start. It does not see what is in an unusual
# place; the package manager, or CMake, may find it there.
is_there() {
    local kind=$1 prefix name prefixes folders=(lib lib64 'lib/*')
    shift
    IFS=: read -r -a prefixes <<<"${CMAKE_PREFIX_PATH:-}"
    case $kind in
    command)
        for name; do command -v "$name" >/dev/null && return; done
        ;;
    file | header)
        [[ $kind == file ]] || folders=(include 'include/*')
        for prefix in "${prefixes[@]}" /usr /usr/local; do
            for name in "${folders[@]}"; do compgen -G "$prefix/$name/$1" >/dev/null && return; done
        done
        ;;
    python)
        # The system's Python first: another one seldom sees the system's packages.
        for name in /usr/bin/python3 python3; do "$name" -c "import $1" 2>/dev/null && return; done
        ;;
    esac
    return 1
}

as_root() {
    local sudo=()
    ((EUID == 0)) || sudo=(sudo)
    # The package manager's tools are in folders that may be missing from an ordinary user's PATH.
    "${sudo[@]}" env PATH="$PATH:/usr/local/sbin:/usr/sbin:/sbin" DEBIAN_FRONTEND=noninteractive "$@"
}

# Installed files must be readable by all users, whatever the caller's umask.
install_packages() (
    umask 022
    say "installing $*"
    as_root apt-get -q -o DPkg::Lock::Timeout=300 update ||
        say "could not update the package lists; continuing with the existing ones"
    as_root apt-get -q -y -o DPkg::Lock::Timeout=300 install --no-install-recommends "$@"
)

# Takes needs, and installs those that are missing.
ensure() {
    local need name probe package names='' packages=()
    for need; do
        IFS='|' read -r name probe package <<<"$need"
        # shellcheck disable=SC2086 # the probe is words
        is_there $probe && continue
        read -r package <<<"$package"
        [[ $(dpkg-query -W -f '${db:Status-Status}' "$package" 2>/dev/null) == installed ]] && continue
        read -r name <<<"$name"
        names+=", $name"
        packages+=("$package")
    done
    ((${#packages[@]})) || return 0
    if command -v apt-get >/dev/null && { ((EUID == 0)) || command -v sudo >/dev/null; }; then
        install_packages "${packages[@]}" || stop "could not install: ${packages[*]}"
    else
        say "not found: ${names:2}. Continuing; if the build fails, install them. On Debian, as root:" \
            "apt-get install --no-install-recommends ${packages[*]}"
    fi
}

cached_value() {
    sed -n "s/^$1:[A-Z]*=//p" "$build/CMakeCache.txt" 2>/dev/null
}

# Configures the preset; takes further options for CMake. KEYGEN_CMAKE_OPTIONS may contain more, separated by blanks.
configure() {
    local first='' words
    [[ -e $build/CMakeCache.txt ]] || first=yes
    [[ ! $first ]] || ! command -v ninja >/dev/null || export CMAKE_GENERATOR=${CMAKE_GENERATOR:-Ninja}
    read -r -a words <<<"${KEYGEN_CMAKE_OPTIONS:-}"
    (cd "$tree" && cmake --preset "$preset" "$@" "${words[@]}") && return
    # What a failed first configuration has cached, a compiler for example, must not affect the next one.
    [[ ! $first ]] || rm -rf "$build"/CMakeCache.txt "$build"/CMakeFiles/[0-9]*
    stop "configuring failed"
}

# A build folder that was copied with the tree belongs to the original tree.
forget_configuration_of_another_tree() {
    local home
    home=$(cached_value CMAKE_HOME_DIRECTORY)
    if [[ -n $home && ! $home -ef $tree ]]; then
        say "the build folder was made for $home; starting again"
        find "$build" -mindepth 1 ! -name .lock -delete
    fi
}

# Builds targets. Prints nothing if there is nothing to do.
build() {
    local nothing_done='^ninja: no work to do\.$|^\[0/[0-9]+\] Re-checking globbed directories'
    nothing_done+='|^\[[ 0-9]*%\] Built target |^g?make\[?.*: Nothing to be done for '
    (cd "$tree" && cmake --build "$build" --parallel "$(nproc)" --target "$@" 2>&1) |
        { grep -Ev "$nothing_done" || true; }
    ((PIPESTATUS[0] == 0)) || stop "building failed"
}

# Allows one build at a time in a build folder.
lock_build_folder() {
    mkdir -p "$build" || stop "cannot create the build folder"
    command -v flock >/dev/null || return 0
    exec 9>"$build/.lock" || stop "cannot lock the build folder"
    flock --nonblock 9 && return
    say "waiting for another build in this folder"
    flock 9
}

is_configured_for() {
    [[ -e $build/CMakeCache.txt && (-e $build/build.ninja || -e $build/Makefile) ]] || return
    [[ $1 == OFF ]] && return
    # If tools for tests were missing when the build was configured, look for them again.
    [[ $(cached_value BUILD_TESTING) == ON ]] && ! grep -q '^KEYGEN_TEST_.*-NOTFOUND$' "$build/CMakeCache.txt"
}

# The scripts' first step: installs what the build needs and what is in `needs`, and builds targets, with the tests (ON)
# or whether or not the tests are configured (OFF).
needs=()
set_up() (
    tests=$1
    shift
    ensure "${needs_of_the_build[@]}" "${needs[@]}"
    lock_build_folder
    forget_configuration_of_another_tree
    is_configured_for "$tests" || configure -DBUILD_TESTING="$tests"
    (($# == 0)) || build "$@"
) </dev/null >&2
