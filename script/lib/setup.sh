# shellcheck shell=bash
# shellcheck disable=SC2034 # some of what stands here is for the scripts that source it
# Set-up that the scripts share: what the machine must have, and how the build folder is made.

# The script that was called, and the top of its tree, whatever links led here.
this_script=$(readlink -f -- "$0")
tree=$(CDPATH='' cd -P -- "$(dirname -- "$(readlink -f -- "${BASH_SOURCE[0]}")")/../.." && pwd) || exit

# The preset that is built, and its folder. A script that builds another one sets both.
preset=default
build=$tree/build

# What is needed: its name for the user | how to see that it is there | the package that brings it.
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
# For the tests of the manual, and of the completions in these shells. Where they cannot be installed, the others run.
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

# A cheap look, without the package manager: it runs at every start. What stands in an unusual place is not seen
# here; then the package manager knows better, or CMake does.
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
        # The system's own first: a package of the system seldom reaches another one.
        for name in /usr/bin/python3 python3; do "$name" -c "import $1" 2>/dev/null && return; done
        ;;
    esac
    return 1
}

as_root() {
    local sudo=()
    ((EUID == 0)) || sudo=(sudo)
    # The tools of the package manager stand in folders that an ordinary user's PATH may leave out.
    "${sudo[@]}" env PATH="$PATH:/usr/local/sbin:/usr/sbin:/sbin" DEBIAN_FRONTEND=noninteractive "$@"
}

# What the system installs is for all its users, however private the caller's own files are.
install_packages() (
    umask 022
    say "installing $*"
    as_root apt-get -q -o DPkg::Lock::Timeout=300 update ||
        say "the lists of packages could not be brought up to date; going on with those that are there"
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
        say "not found: ${names:2}. Going on; should the build fail, install them. On Debian root does so by:" \
            "apt-get install --no-install-recommends ${packages[*]}"
    fi
}

cached_value() {
    sed -n "s/^$1:[A-Z]*=//p" "$build/CMakeCache.txt" 2>/dev/null
}

# Configures the preset; takes further options of CMake. More of them may stand in KEYGEN_CMAKE_OPTIONS, as words.
configure() {
    local first='' words
    [[ -e $build/CMakeCache.txt ]] || first=yes
    [[ ! $first ]] || ! command -v ninja >/dev/null || export CMAKE_GENERATOR=${CMAKE_GENERATOR:-Ninja}
    read -r -a words <<<"${KEYGEN_CMAKE_OPTIONS:-}"
    (cd "$tree" && cmake --preset "$preset" "$@" "${words[@]}") && return
    # What CMake found out at the first, failed time must not stand in the way of the next: a compiler, say.
    [[ ! $first ]] || rm -rf "$build"/CMakeCache.txt "$build"/CMakeFiles/[0-9]*
    stop "configuring failed"
}

# A build folder that came along with a copy of the tree belongs to the tree it was made from.
forget_configuration_of_another_tree() {
    local home
    home=$(cached_value CMAKE_HOME_DIRECTORY)
    if [[ -n $home && ! $home -ef $tree ]]; then
        say "the build folder was made for $home; making it anew"
        find "$build" -mindepth 1 ! -name .lock -delete
    fi
}

# Builds targets. Says nothing where there is nothing to do.
build() {
    local nothing_done='^ninja: no work to do\.$|^\[0/[0-9]+\] Re-checking globbed directories'
    nothing_done+='|^\[[ 0-9]*%\] Built target |^g?make\[?.*: Nothing to be done for '
    (cd "$tree" && cmake --build "$build" --parallel "$(nproc)" --target "$@" 2>&1) |
        { grep -Ev "$nothing_done" || true; }
    ((PIPESTATUS[0] == 0)) || stop "building failed"
}

# One at a time in one build folder.
lock_build_folder() {
    mkdir -p "$build" || stop "cannot make the build folder"
    command -v flock >/dev/null || return 0
    exec 9>"$build/.lock" || stop "cannot lock the build folder"
    flock --nonblock 9 && return
    say "waiting for another build in this folder"
    flock 9
}

is_configured_for() {
    [[ -e $build/CMakeCache.txt && (-e $build/build.ninja || -e $build/Makefile) ]] || return
    [[ $1 == OFF ]] && return
    # Tests whose tools were missing when the build was configured are looked for again.
    [[ $(cached_value BUILD_TESTING) == ON ]] && ! grep -q '^KEYGEN_TEST_.*-NOTFOUND$' "$build/CMakeCache.txt"
}

# What the scripts do before their work: they build targets with the tests (ON), or without need of them (OFF), after
# installing what the build needs and what stands in `needs`.
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
