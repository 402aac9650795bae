# shellcheck shell=bash
# Shared by the scripts: sourced with the repository's root as the current folder.

# require COMMAND=PACKAGE...: installs the Debian packages whose commands (or files, where they begin with /) are
# missing; where it may not install, says which are missing and exits with status 3.
require() {
    local missing=() pair
    for pair in "$@"; do
        case $pair in
            /*) [ -e "${pair%%=*}" ] || missing+=("${pair##*=}") ;;
            *) command -v "${pair%%=*}" > /dev/null 2>&1 || missing+=("${pair##*=}") ;;
        esac
    done
    [ ${#missing[@]} -gt 0 ] || return 0
    local install=(apt-get)
    if [ "$(id -u)" != 0 ]; then
        if command -v sudo > /dev/null 2>&1 && sudo -n true 2> /dev/null; then
            install=(sudo -n apt-get)
        else
            install=()
        fi
    fi
    if [ ${#install[@]} -eq 0 ] || ! command -v apt-get > /dev/null 2>&1; then
        echo "Missing, and not to be installed from here: ${missing[*]} (names of Debian packages)" >&2
        exit 3
    fi
    echo "Installing: ${missing[*]}"
    local log
    log=$(mktemp)
    if ! { "${install[@]}" -qq update &&
        DEBIAN_FRONTEND=noninteractive "${install[@]}" -qq -y --no-install-recommends install "${missing[@]}"; } \
        > "$log" 2>&1; then
        tail -n 20 "$log" >&2
        rm -f "$log"
        echo "Missing, and could not be installed: ${missing[*]}" >&2
        exit 3
    fi
    rm -f "$log"
}

buildTools=(g++=g++ cmake=cmake ninja=ninja-build)
testTools=(/usr/include/gtest/gtest.h=libgtest-dev localedef=libc-bin /usr/share/i18n/locales/ja_JP=locales
    pkg-config=pkg-config)

# build PRESET [OPTION...]: configures and builds; quiet unless something fails.
build() {
    local preset=$1 log
    shift
    log=$(mktemp)
    if ! { cmake --preset "$preset" "$@" && cmake --build --preset "$preset"; } > "$log" 2>&1; then
        cat "$log" >&2
        rm -f "$log"
        exit 1
    fi
    rm -f "$log"
}
