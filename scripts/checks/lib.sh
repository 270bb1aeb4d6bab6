# shellcheck shell=bash
# Shared by the scripts beside it, which source it first. Each of them is a file of checks: functions
# that CTest calls one by one, as CMakeLists.txt lists them. A check writes only into a folder of its
# own, so checks run alone and beside each other; what the fixtures have made, it reads.
source "$(dirname "${BASH_SOURCE[0]}")/../lib.sh"

SKIPPED_STATUS=77 # CMakeLists.txt tells CTest

# run_check CHECK BUILD-FOLDER
run_check() {
    take_arguments 2 2 "$@"
    declare -F "$1" >/dev/null || usage_error "no such check: $1"
    [[ -f $2/CTestTestfile.cmake ]] || usage_error "no build folder: $2"
    BUILD=$(realpath "$2")
    PLUGIN=$BUILD/module/hoplar-enable_features.so
    PREFIX=$BUILD/checks/installation/prefix
    PACKAGES=$BUILD/checks/debian_packages/packages
    OWN=$BUILD/checks/$1
    rm -rf "$OWN"
    mkdir -p "$OWN"
    heading "$1"
    "$1"
}

# needs PROGRAM...: ends the check when programs are missing that building does not need. That is a
# failure where HOPLAR_SKIP_NOTHING is set, as scripts/check does; otherwise it is said to CTest.
needs() {
    local program missing=()
    for program in "$@"; do
        command -v "$program" >/dev/null || missing+=("${PACKAGE_OF[$program]}")
    done
    ((${#missing[@]} > 0)) || return 0
    [[ -z ${HOPLAR_SKIP_NOTHING:-} ]] || fail "not installed: ${missing[*]}"
    echo "Skipped: needs ${missing[*]}; 'scripts/check packages' installs what checks need"
    trap - EXIT
    exit "$SKIPPED_STATUS"
}

declare -A PROGRAMS=([hoplar]=host/cli/hoplar [hoplar-check]=tools/check/hoplar-check
    [hoplar-fleet]=tools/fleet/hoplar-fleet [hoplar-ops]=tools/ops/hoplar-ops)

# options_of PROGRAM: prints the options that --help lists or a unit uses.
options_of() {
    local options
    options=$("$BUILD/${PROGRAMS[$1]}" --help | sed -n 's/^  \(-[-,a-zA-Z]*\).*/\1/p' | tr , '\n')
    [[ $options == *--version* ]] || fail "cannot tell which options $1 has"
    echo "$options"
    [[ $1 != hoplar ]] || grep -h ^ExecStart= packaging/*.service | grep -oE -- ' --?[a-z]+'
}
