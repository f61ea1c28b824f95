#!/bin/sh
# Runs the Python package's tests on virtual pads. Arguments: source directory, build directory.
set -eu

source=$1 build=$2

# A newer Python of the user's own may stand before Debian's, which has pytest.
for python in python3 /usr/bin/python3; do
    ! "$python" -c 'import pytest' 2>/dev/null || break
done

export LC_ALL=C.UTF-8
export PYTHONPATH="$source/python" PYTHONDONTWRITEBYTECODE=1 VXPADCOM_LIBRARY="$build/libvxpadcom.so.0"
export PATH="$build/bin:$PATH"
exec vxpad-emulator run --pad "type=16,interfaces=2,serial=A1,product=Classic é,maker=ACME,unknown=loop-back" \
    --pad type=17,serial=B2 --vcom type=16,serial=C3 -- \
    "$python" -m pytest -q -p no:cacheprovider "$source/tests/python"
