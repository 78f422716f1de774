# shellcheck shell=bash
# Sourced by the tests of the command-line tool. Expects the tool's path in ZAV and the speech
# recording's in SPEECH.
set -euo pipefail

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"
checks=0

fail() {
    printf 'FAILED: %s\n' "$*" >&2
    exit 1
}

# same FILE FILE WHAT
same() {
    cmp -s "$1" "$2" || fail "$3: $1 and $2 differ"
    checks=$((checks + 1))
}

# refused EXIT_CODE TEXT COMMAND...: the command fails with this code and says so in one line of
# exactly this text on standard error, and nothing on standard output.
refused() {
    local expected_code=$1 expected=$2 code=0
    shift 2
    "$@" >stdout.txt 2>stderr.txt || code=$?
    [ "$code" = "$expected_code" ] || fail "$*: exit $code instead of $expected_code: $(cat stderr.txt)"
    [ "$(cat stderr.txt)" = "$expected" ] ||
        fail "$*: said: $(cat stderr.txt)"$'\n'"instead of: $expected"
    [ ! -s stdout.txt ] || fail "$*: wrote on standard output: $(cat stdout.txt)"
    checks=$((checks + 1))
}

# refused_all EXIT_CODE <LINES: the tool refuses each of 'ARGUMENTS | TEXT', as above.
refused_all() {
    local arguments text
    while IFS='|' read -r arguments text; do
        # shellcheck disable=SC2086
        refused "$1" "zav: ${text# }" "$ZAV" $arguments </dev/null
    done
}

# terminal COMMAND...: what it prints on a terminal.
terminal() { script -qec "$*" /dev/null </dev/null; }

# copy_tool FOLDER: the tool and its library alone, in a new folder.
copy_tool() {
    mkdir "$1"
    cp "$ZAV" "$1"
    cp -L "$(ldd "$ZAV" | awk '/libZAVAudioStreaming/ { print $3 }')" "$1"
}

# raw FILE: the audio bytes of a file as ffmpeg finds them, undecoded.
raw() {
    ffmpeg -nostdin -v error -i "$1" -map 0:a -c copy -f data -
}

# done_with WHAT: everything passed, some of it by the functions above.
done_with() {
    [ "$checks" -gt 0 ] || fail "nothing was checked"
    printf '%s: passed\n' "$1"
}
