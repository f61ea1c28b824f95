#!/bin/sh
# Whoever tells a version tells that of the header. Arguments: source directory, build directory, python.
set -eu

source=$1 build=$2 python=$3
version=$(sed -n 's/^#define VXPADCOM_VERSION_\(MAJOR\|MINOR\|PATCH\) //p' "$source/include/vxpadcom/version.h" | paste -sd.)

expect() {
    if [ "$2" != "$version" ]; then
        echo "versions: the header has $version, but $1 has '$2'" >&2
        failed=1
    fi
}

failed=
expect "the library's file" "$(readlink "$build/$(readlink "$build/libvxpadcom.so")" | sed 's/.*\.so\.//')"
expect "pkg-config" "$(pkg-config --modversion "$build/packaging/vxpadcom.pc")"
expect "CMake's package" "$(sed -n 's/^set(PACKAGE_VERSION "\(.*\)")/\1/p' "$build/packaging/vxpadcomConfigVersion.cmake")"
for program in vxpadctl vxpad-emulator vxpad-emulator-control vxpad-bridge; do
    [ -x "$build/bin/$program" ] || continue
    line=$("$build/bin/$program" --version)
    expect "$program" "$(echo "$line" | sed "s/^$program \([0-9.]*\) .*/\1/")"
    echo "$line" | grep -qE '^[^ ]+ [0-9.]+ \((libvxpadcom [0-9.]+, )?libusb 1\.[0-9.]+, hidapi 0\.[0-9.]+\)$' || {
        echo "versions: $program --version does not tell those of its libraries: $line" >&2
        failed=1
    }
done
expect "the library that vxpadctl has loaded" "$("$build/bin/vxpadctl" --version | sed 's/.*libvxpadcom \([0-9.]*\),.*/\1/')"
expect "debian/changelog" "$(sed -n '1s/.*(\(.*\)).*/\1/p' "$source/debian/changelog")"
expect "packaging/vxpadcom.rpm-recipe" "$(sed -n 's/^Version: *//p' "$source/packaging/vxpadcom.rpm-recipe")"

export PYTHONPATH="$source/python" PYTHONDONTWRITEBYTECODE=1 VXPADCOM_LIBRARY="$build/libvxpadcom.so.0"
expect "the Python package" "$("$python" -c 'import vxpadcom; print(vxpadcom.__version__)')"
expect "the library that Python has loaded" "$("$python" -c 'import vxpadcom; print(vxpadcom.library_version())')"
[ -z "$failed" ]
