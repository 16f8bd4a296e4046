# shellcheck shell=bash
# The Debian packages that building, testing and showing the service need.

# What every command needs.
LINKVANE_PACKAGES=(
    ccache cmake ninja-build          # the build
    g++-mingw-w64-x86-64-posix        # the cross compiler, with its windres and libraries
    googletest                        # the sources in /usr/src/googletest
    clang-format clang-tidy shellcheck  # the checks
    git python3                       # what is tracked; the end-to-end tests
    msitools wixl openssl osslsigncode python3-pefile  # the release
    wine64                            # the test bed
    libwine-dev mingw-w64-tools       # the simulated notebook's proxies: their IDL, and widl
    g++ libcli11-dev libfmt-dev libgmock-dev nlohmann-json3-dev  # what looks at logs
    libz-mingw-w64-dev                # and packs them
    esbuild node-d3-scale node-d3-zoom  # its page
)
# What looks at logs needs no more than these.
LINKVANE_DOCTOR_PACKAGES=(ccache cmake ninja-build g++ libcli11-dev libfmt-dev libgmock-dev nlohmann-json3-dev
    esbuild node-d3-scale node-d3-zoom)
# Only for one mode each. The page's is a browser, half a gigabyte of it.
LINKVANE_PAGE_PACKAGES=(chromium chromium-driver python3-selenium)
LINKVANE_BENCH_PACKAGES=(libfmt-dev libspdlog-dev)
LINKVANE_COVERAGE_PACKAGES=(gcovr)

# packages_missing PACKAGE...: prints those that are not installed.
packages_missing() {
    local package
    for package; do
        [[ $(dpkg-query --show --showformat='${db:Status-Status}' "$package" 2>/dev/null) == installed ]] ||
            echo "$package"
    done
}

# packages_install PACKAGE...: installs what is missing of them, as root or through sudo.
packages_install() {
    local missing as_root=()
    command -v apt-get >/dev/null || die "this needs Debian's apt-get; install by other means: $*"
    mapfile -t missing < <(packages_missing "$@")
    if ((${#missing[@]} == 0)); then
        say "All packages are installed."
        return 0
    fi
    if ((EUID != 0)); then
        command -v sudo >/dev/null || die "not root, and no sudo to install with: ${missing[*]}"
        as_root=(sudo)
    fi
    say "Installing ${missing[*]}"
    as_root+=(env DEBIAN_FRONTEND=noninteractive apt-get -o DPkg::Lock::Timeout=600 -qq)
    "${as_root[@]}" update
    # Without recommendations Wine brings no fonts, sound or printing, which nothing here uses.
    "${as_root[@]}" install --yes --no-install-recommends "${missing[@]}" >/dev/null
    say "Installed."
}
