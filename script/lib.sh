# SPDX-License-Identifier: MIT
# Shell functions shared by the scripts beside this file; sourced, not run.
# shellcheck shell=bash

# Runs a command with the rights to change the machine's packages.
as_root() {
    if [ "$(id -u)" -eq 0 ]; then "$@"; else sudo "$@"; fi
}

package_installed() {
    [ "$(dpkg-query -W -f '${db:Status-Status}' "$1" 2>/dev/null)" = installed ]
}

# need_packages PKG...: installs the Debian packages that are not there yet.
# A failing index update alone is no reason to stop: the packages may be had all the same.
need_packages() {
    local package missing=()
    for package in "$@"; do
        package_installed "$package" || missing+=("$package")
    done
    [ "${#missing[@]}" -gt 0 ] || return 0

    echo "Installing Debian packages: ${missing[*]}" >&2
    as_root apt-get -q update >&2 ||
        echo "apt-get update reported errors; going on with the indexes at hand" >&2
    as_root env DEBIAN_FRONTEND=noninteractive \
        apt-get -q install -y --no-install-recommends "${missing[@]}" >&2 || {
        echo "These Debian packages are needed and could not be installed: ${missing[*]}" >&2
        return 1
    }
}
