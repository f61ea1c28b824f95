#!/bin/sh
# What the build system promises to those who install and package. Arguments: source directory, cmake, C compiler, C++
# compiler.
set -eu

source=$1 cmake=$2 cc=$3 cxx=$4
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
build=$scratch/build

fail() {
    echo "configure: $*" >&2
    [ ! -f "$scratch/log" ] || cat "$scratch/log" >&2
    exit 1
}

# configure OPTION...: the output goes to $scratch/log
configure() {
    "$cmake" -S "$source" -B "$build" -DCMAKE_C_COMPILER="$cc" -DCMAKE_CXX_COMPILER="$cxx" "$@" >"$scratch/log" 2>&1
}

expect() {
    grep -qF -- "$2" "$build/$1" || fail "$1 does not have: $2"
}

configure -DBUILD_TESTING=OFF -DCMAKE_INSTALL_PREFIX=/opt/pads -DCMAKE_INSTALL_LIBDIR=/opt/x/lib \
    -DCMAKE_INSTALL_INCLUDEDIR=/opt/y/include || fail "absolute directories are refused"
expect CMakeCache.txt 'CMAKE_BUILD_TYPE:STRING=Release'
"$cmake" --build "$build" --target help >"$scratch/log"
! grep -qE 'vxpad-(test|bench)' "$scratch/log" || fail "BUILD_TESTING=OFF builds tests"
grep -q vxpadctl "$scratch/log" || fail "vxpadctl is not built"
expect packaging/vxpadcom.pc 'prefix=/opt/pads'
expect packaging/vxpadcom.pc 'libdir=/opt/x/lib'
expect packaging/vxpadcom.pc 'includedir=/opt/y/include'
expect tools/cmake_install.cmake 'NEW_RPATH "/opt/x/lib"'
expect packaging/cmake_install.cmake 'DESTINATION "/opt/x/lib/pkgconfig"'
targets=$(grep -rlF 'set(_IMPORT_PREFIX "/opt/pads")' "$build/packaging" --include='vxpadcomTargets.cmake') ||
    fail "CMake's package does not know its prefix"
grep -qF '/opt/y/include' "$targets" || fail "CMake's package has another include directory"
grep -rqF '/opt/x/lib/libvxpadcom.so' "$(dirname "$targets")" || fail "CMake's package has another library"

configure -DCMAKE_INSTALL_PREFIX=/opt/pads -DCMAKE_INSTALL_LIBDIR=lib -DCMAKE_INSTALL_INCLUDEDIR=include ||
    fail "relative directories are refused"
expect tools/cmake_install.cmake 'ORIGIN/../lib"'
# shellcheck disable=SC2016 # pkg-config's variables
expect packaging/vxpadcom.pc 'libdir=${prefix}/lib'

configure -DCMAKE_INSTALL_PREFIX=/usr -DCMAKE_INSTALL_LIBDIR=lib || fail "the prefix /usr is refused"
grep -q 'NEW_RPATH "")' "$build/tools/cmake_install.cmake" || fail "vxpadctl below /usr has an RPATH"

! configure -DVXPADCOM_USB_IDS="$scratch/nowhere.hpp" || fail "an id file that is not there is taken"
grep -q 'VXPADCOM_USB_IDS: there is no file' "$scratch/log" || fail "a missing id file is not told"
echo 'namespace usb_ids { constexpr int vendors = 3; }' >"$scratch/ids.hpp"
! configure -DVXPADCOM_USB_IDS="$scratch/ids.hpp" || fail "an id file without ids is taken"
grep -q 'is no copy of' "$scratch/log" || fail "a wrong id file is not told"
sed 's/0xf1a5/0xf1a5f1a5/' "$source/src/transport/usb_ids.hpp" >"$scratch/ids.hpp"
! configure -DVXPADCOM_USB_IDS="$scratch/ids.hpp" || fail "an id of 32 bits is taken"
grep -q 'a USB id is' "$scratch/log" || fail "an id of 32 bits is not told"
sed 's/0xf1a5/0x1234/' "$source/src/transport/usb_ids.hpp" >"$scratch/ids.hpp"
configure -DVXPADCOM_USB_IDS="$scratch/ids.hpp" || fail "a good id file is refused"
