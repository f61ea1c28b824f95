# shellcheck shell=sh
# install_apart CMAKE BUILD PREFIX LIST: installs a build tree for a test, one at a time; what was installed is in LIST. A
# person's own installation can still be removed afterwards.
install_apart() (
    manifest=$2/install_manifest.txt
    exec 9>"$2/install.lock"
    flock 9
    [ ! -f "$manifest" ] || mv "$manifest" "$4.former"
    "$1" --install "$2" --prefix "$3" >"$4.log"
    mv "$manifest" "$4"
    [ ! -f "$4.former" ] || mv "$4.former" "$manifest"
)
