# SPDX-License-Identifier: MIT
# Shell functions shared by the scripts in this directory; sourced, not run.
# shellcheck shell=bash

# Runs a command with the permissions to install packages.
as_root() {
    if [ "$(id -u)" -eq 0 ]; then "$@"; else sudo "$@"; fi
}

package_installed() {
    [ "$(dpkg-query -W -f '${db:Status-Status}' "$1" 2>/dev/null)" = installed ]
}

# need_packages PKG...: installs the missing Debian packages. Removes none: fails if they conflict
# with installed packages, and names those. A failed index update alone is not an error, because the
# packages may still be available.
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
        apt-get -q install -y --no-install-recommends --no-remove "${missing[@]}" >&2 || {
        echo "These Debian packages are needed and could not be installed: ${missing[*]}" >&2
        explain_removals "${missing[@]}"
        return 1
    }
}

# explain_removals PKG...: names the installed packages that these would replace.
explain_removals() {
    local removed
    removed=$(apt-get -q -s install --no-install-recommends "$@" 2>/dev/null |
        sed -n 's/^Remv \([^ ]*\) .*/\1/p' | sort -u | paste -sd ' ')
    [ -n "$removed" ] || return 0
    cat >&2 <<EOF
Installing them would remove packages of this machine: $removed
Nothing was removed. Build in a container or a chroot, or, if you can do without these packages, run
    apt-get install --no-install-recommends $*
EOF
}
