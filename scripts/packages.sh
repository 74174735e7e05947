# The Debian packages that a build needs, and their installation. Sourced, not run:
#
#     . scripts/packages.sh
#     packages_need "${PACKAGES_BUILD[@]}"      # installs what is missing, or says why it cannot
#
# No questions are asked; the packages are named before they are installed.

# The compiler, the build tools, the test and benchmark libraries; the compiler for the sample suite.
PACKAGES_BUILD=(g++ gcc libc6-dev make cmake ninja-build libgtest-dev libgmock-dev libbenchmark-dev
    libexpat1-dev libminizip-dev zlib1g-dev file)

# The packages for the checks: those, and the formatter.
# shellcheck disable=SC2034 # for the scripts that source this file
PACKAGES_CHECK=("${PACKAGES_BUILD[@]}" git clang-format python3 unzip)

# The packages for single tests, which are skipped without them.
# shellcheck disable=SC2034
PACKAGES_OPTIONAL=(lldb strace)

# packages_missing NAME...: prints those that are not installed.
packages_missing() {
    local name
    for name in "$@"; do
        case "$(dpkg-query -W -f='${Status}' "$name" 2>/dev/null)" in
        *" installed") ;;
        *) printf '%s ' "$name" ;;
        esac
    done
}

# packages_as_root COMMAND...: runs the command as root, by sudo when this is another user.
packages_as_root() {
    if [ "$(id -u)" -eq 0 ]; then
        "$@"
    else
        sudo -n "$@"
    fi
}

# packages_need NAME...: installs the missing ones. Ends the script when it cannot.
packages_need() {
    local missing
    if ! command -v dpkg-query >/dev/null || ! command -v apt-get >/dev/null; then
        echo "This is no Debian system: make sure that the counterparts of these are installed: $*"
        return 0
    fi
    missing=$(packages_missing "$@")
    if [ -z "$missing" ]; then
        echo "All packages needed are installed: $*"
        return 0
    fi
    if [ "$(id -u)" -ne 0 ] && ! sudo -n true 2>/dev/null; then
        echo "These Debian packages are missing: $missing" >&2
        echo "Installing them needs root, or sudo without a password, and there is neither." >&2
        echo "Have somebody run:  apt-get install $missing" >&2
        exit 1
    fi
    echo "Installing these Debian packages: $missing"
    packages_as_root apt-get -q update </dev/null
    # shellcheck disable=SC2086 # a list of words
    packages_as_root env DEBIAN_FRONTEND=noninteractive \
        apt-get -q -y --no-install-recommends install $missing </dev/null
}

# packages_want NAME...: the same for optional packages; only reports it when it cannot.
packages_want() {
    # In a shell of its own, which may end.
    (packages_need "$@") || echo "Going on without: $(packages_missing "$@")"
}
