# Sourced by test scripts: runs a host that was built against an installation.
# shellcheck shell=sh

# run_host HOST LIBDIR: it needs the library, nothing of Qt itself, and works.
run_host() {
    needed=$(readelf -d "$1" | grep NEEDED)
    echo "$needed" | grep -q '\[libVornakKorrin\.so\.1\]'
    if echo "$needed" | grep -i qt; then
        return 1
    fi
    version=$(LD_LIBRARY_PATH=$2 "$1")
    [ "$version" = R7204B ]
}
