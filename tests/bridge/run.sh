#!/bin/sh
# Runs tests of the bridge on virtual pads. Arguments: source directory, build directory, test file, pytest's options.
set -eu

source=$1 build=$2 file=$3
shift 3

# A newer Python of the user's own may stand before Debian's, which has pytest.
for python in python3 /usr/bin/python3; do
    ! "$python" -c 'import pytest' 2>/dev/null || break
done

export LC_ALL=C.UTF-8 PYTHONDONTWRITEBYTECODE=1 PATH="$build/bin:$PATH"
exec "$python" -m pytest -q -p no:cacheprovider "$source/tests/bridge/$file" "$@"
