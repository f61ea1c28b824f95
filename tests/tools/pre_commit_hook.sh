#!/bin/bash
# Commits badly formatted files to a scratch repository with the hook that formats them. Argument: the source directory.
set -eu
source=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"

export GIT_CONFIG_GLOBAL=/dev/null GIT_CONFIG_SYSTEM=/dev/null
export GIT_AUTHOR_NAME=a GIT_AUTHOR_EMAIL=a@b GIT_COMMITTER_NAME=a GIT_COMMITTER_EMAIL=a@b
unset GIT_DIR GIT_WORK_TREE GIT_INDEX_FILE
git init -q .
git config core.hooksPath "$source/scripts/hooks"
cp "$source/.clang-format" .

# expect WHAT WANTED GOT
expect() {
    if [ "$2" != "$3" ]; then
        printf '%s: wanted\n%s\ngot\n%s\n' "$1" "$2" "$3"
        exit 1
    fi
}
bad='int  one( );'
good='int one();'
lines() { printf '%s\n' "$@"; }

# A whole file, with a name that is none of the easy ones.
lines "$bad" >'an odd name.cpp'
lines "$bad" >text.txt
git add -A
git commit -qm whole
expect "a staged file" "$good" "$(git show 'HEAD:an odd name.cpp')"
expect "its working tree" "$good" "$(cat 'an odd name.cpp')"
expect "what is no source" "$bad" "$(git show HEAD:text.txt)"
expect "what is left over" "" "$(git status --short)"

# Staged in part: what is not staged is neither committed nor lost nor formatted.
lines "$bad" '' 'int two();' '' 'int three();' >part.cpp
git add part.cpp
lines "$bad" '' 'int two();' '' 'int   three();' >part.cpp
git commit -qm part
expect "the staged part" "$(lines "$good" '' 'int two();' '' 'int three();')" "$(git show HEAD:part.cpp)"
expect "the other part" "$(lines "$good" '' 'int two();' '' 'int   three();')" "$(cat part.cpp)"
expect "the difference" " M part.cpp" "$(git status --short)"
git checkout -q part.cpp

# Changed in the same line since it was staged: the working tree is left alone.
lines "$bad" >same.cpp
git add same.cpp
lines 'int  other( );' >same.cpp
git commit -qm same 2>messages
grep -q 'same.cpp, but in the commit only' messages
expect "the staged line" "$good" "$(git show HEAD:same.cpp)"
expect "the changed line" 'int  other( );' "$(cat same.cpp)"

# A commit of named files stands beside the index: it is refused until they are formatted.
before=$(git rev-parse HEAD)
if git commit -qm named same.cpp 2>messages; then
    echo 'a commit of a badly formatted file by its name was not refused'
    exit 1
fi
grep -q 'clang-format -i same.cpp' messages
expect "the refused commit" "$before" "$(git rev-parse HEAD)"
clang-format -i same.cpp
git commit -qm named same.cpp
expect "the named file" 'int other();' "$(git show HEAD:same.cpp)"

# A file that goes, and one whose working copy has gone.
git rm -q text.txt
lines "$bad" >gone.cpp
git add gone.cpp
rm gone.cpp
git commit -qm gone
expect "a file without a working copy" "$good" "$(git show HEAD:gone.cpp)"
