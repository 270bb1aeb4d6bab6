# Shared by the scripts beside it, which source it first. From here on the working directory is the
# repository's root.
#
# The comment at the head of a script is its help: it begins with the line "Usage: ...".

HELP=$(sed -n '1d; /^#/!q; /^# shellcheck/!s/^# \{0,1\}//p' "$0")

cd "$(dirname "${BASH_SOURCE[0]}")/.."

JOBS=$(nproc)

# Building needs these, tests included, and lspci for a second opinion.
BUILD_PACKAGES=(cmake ninja-build g++ libgtest-dev libcli11-dev nlohmann-json3-dev libelf-dev
    libpci-dev libsqlite3-dev libudev-dev libsystemd-dev linux-libc-dev python3 pciutils)

# The fuzz targets and the address sanitizer need these in addition.
FUZZ_PACKAGES=(clang libclang-rt-14-dev)

# The packages of programs that the checks in scripts/checks need beyond what building needs.
declare -A PACKAGE_OF=([ansible-lint]=ansible-lint [ansible-playbook]=ansible-core [clang++]=clang
    [dpkg]=dpkg [dpkg-deb]=dpkg [dpkg-parsechangelog]=dpkg-dev [dpkg-shlibdeps]=dpkg-dev
    [fakeroot]=fakeroot [file]=file [groff]=groff-base [lintian]=lintian [mandoc]=mandoc
    [systemctl]=systemd [systemd-analyze]=systemd [yamllint]=yamllint)

# The test programs with threads in them.
THREADED_TESTS=(module_tests ecrc_tests mps_tests operations_tests)

# Begins a step, which a failure will name; with the time since the script began.
heading() {
    step_name=$*
    printf '\n== %s (%d s)\n' "$*" "$SECONDS"
}

fail() {
    printf '%s\n' "$*" >&2
    exit 1
}

# Ends the script, without having done anything.
usage_error() {
    trap - EXIT
    printf '%s: %s; "%s --help" shows more\n' "$0" "$1" "$0" >&2
    exit 2
}

# take_arguments MINIMUM MAXIMUM "$@": shows the help that the script's user wants; ends the script for
# options, which there are none of, and for too few or too many arguments.
take_arguments() {
    local minimum=$1 maximum=$2 argument
    shift 2
    for argument in "$@"; do
        if [[ $argument == --help || $argument == -h ]]; then
            printf '%s\n' "$HELP"
            exit 0
        fi
        [[ $argument != -* ]] || usage_error "no such option: $argument"
    done
    (($# >= minimum)) || usage_error "arguments missing: ${HELP%%$'\n'*}"
    (($# <= maximum)) || usage_error "too many arguments: ${HELP%%$'\n'*}"
}

check_seconds() {
    [[ $1 =~ ^[1-9][0-9]*$ ]] || usage_error "no number of seconds: $1"
}

# However a script ends early, its last line says in which step.
report_failure() {
    local status=$?
    ((status == 0)) || printf '\n%s FAILED in step: %s\n' "$0" "${step_name:-start}" >&2
}
trap report_failure EXIT

# Installs those of the named Debian packages that are missing; without any, touches nothing.
need_packages() {
    local package missing=()
    for package in "$@"; do
        is_installed "$package" || missing+=("$package")
    done
    if ((${#missing[@]} == 0)); then
        echo "all there"
        return
    fi
    echo "installing with apt (log: build/apt.log): ${missing[*]}"
    mkdir -p build
    {
        as_root apt-get update -qq
        as_root env DEBIAN_FRONTEND=noninteractive \
            apt-get install -y -qq --no-install-recommends "${missing[@]}"
    } >build/apt.log
}

is_installed() {
    [[ $(dpkg-query -W -f='${db:Status-Status}' "$1" 2>/dev/null) == installed ]]
}

as_root() {
    if ((EUID == 0)); then
        "$@"
    elif command -v sudo >/dev/null; then
        sudo "$@"
    else
        fail "root is needed for: $* (be root, or install sudo)"
    fi
}

# Configures a preset the first time; the build itself configures again when a CMake file changed.
configure() {
    local preset=$1
    [[ -f build/$preset/build.ninja ]] || cmake --preset "$preset"
}

# build PRESET [TARGET...]: everything, or only these targets.
build() {
    local preset=$1
    shift
    configure "$preset"
    if (($# > 0)); then
        cmake --build --preset "$preset" -j "$JOBS" --target "$@"
    else
        cmake --build --preset "$preset" -j "$JOBS"
    fi
}

# Runs a program without randomised addresses where that can be had: the sanitizers' run-time does
# not find its place on kernels that randomise more bits than it knows.
without_random_addresses() {
    local steady=()
    ! setarch -R true 2>/dev/null || steady=(setarch -R)
    "${steady[@]}" "$@"
}
