# shellcheck shell=bash disable=SC2034
# The Debian 12 packages of this project. Why each is needed: docs/dependencies.md.

# To build the service, its client library, pushpullctl and the examples.
qo_build_packages=(g++ cmake ninja-build rapidjson-dev zlib1g-dev libcli11-dev)

# To run the demo: namespaces and mounts.
qo_demo_packages=(util-linux mount)

# To run scripts/test, besides the above: tests, benchmarks, fuzzers and the checks of the sources.
qo_test_packages=(libgtest-dev libgmock-dev libbenchmark-dev pkg-config procps ccache valgrind strace
    python3 python3-pytest clang-14 libclang-rt-14-dev clang-format-14)

# What bench/compare is built with, and what it compares the service with.
qo_compare_build_packages=(pkg-config libmosquitto-dev libhiredis-dev libsystemd-dev)
qo_compare_packages=(mosquitto redis-server dbus-daemon)

# For the stages changes and tidy of scripts/test, besides what bench/compare is built with.
qo_tidy_packages=(clang-tidy-14)

# For scripts/test --system, which runs the service in a virtual machine. Of the kernel only its files are used;
# the package is fetched and not installed.
qo_system_packages=(qemu-system-x86 e2fsprogs cpio kmod mount)
qo_system_kernel=linux-image-cloud-amd64

# For scripts/test --arm: the cross compiler, qemu, and what makes the sysroot.
qo_arm_packages=(g++-arm-linux-gnueabihf qemu-user-static mmdebstrap)

# What the sysroot is made of, as packages for armhf: what is built against, and the C++ runtimes that programs need.
qo_armhf_packages=(libc6-dev libstdc++6 libgcc-s1 zlib1g-dev rapidjson-dev libcli11-dev libgtest-dev libgmock-dev
    libbenchmark-dev)

# For tests/system/board, which runs the service on an emulated board; for armhf its kernel and its shell.
qo_board_packages=(qemu-system-arm qemu-user-static mmdebstrap cpio)
qo_board_kernel=linux-image-armmp-lpae
qo_board_armhf_packages=(busybox-static)

# missing_packages NAME...: prints those that are not installed.
missing_packages() {
    local package
    for package in "$@"; do
        if [[ "$(dpkg-query --show --showformat '${db:Status-Status}' "$package" 2>/dev/null)" != installed ]]; then
            printf '%s\n' "$package"
        fi
    done
}

# install_packages NAME...: installs what is missing, quietly; calls apt only when something is.
# Needs terminal.sh.
install_packages() {
    command -v dpkg-query >/dev/null || fail "this script installs Debian packages, and this is no Debian system"
    local missing
    mapfile -t missing < <(missing_packages "$@")
    ((${#missing[@]} > 0)) || return 0

    local as_root=()
    if ((EUID != 0)); then
        command -v sudo >/dev/null ||
            fail "not root and no sudo; have an administrator run: apt-get install --no-install-recommends ${missing[*]}"
        as_root=(sudo)
    fi
    say install "${missing[*]}"
    local log
    log=$(mktemp)
    local apt=("${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get -qq -o DPkg::Lock::Timeout=300)
    logged "$log" "${apt[@]}" update
    logged "$log" "${apt[@]}" install --yes --no-install-recommends "${missing[@]}"
    rm -f "$log"
}

# debian_mirror: prints from where this machine has its packages.
debian_mirror() {
    local mirror
    # shellcheck disable=SC2016 # apt-get fills it in
    mirror=$(apt-get indextargets --format '$(REPO_URI)' 'Created-By: Packages' 'Label: Debian' 'Codename: bookworm' |
        head -n 1)
    printf '%s\n' "${mirror:-http://deb.debian.org/debian/}"
}
