#!/usr/bin/env bash
# Runs the README's commands of the tool unchanged.
# shellcheck source=../support/shell.sh
source "$(dirname "$0")/../support/shell.sh"

mkdir examples
cp "$SPEECH" examples/speech.wav
mkdir bin
ln -s "$ZAV" bin/zav
PATH=$work/bin:$PATH
while read -r command; do
    bash -c "$command" >output.txt || fail "$command"
    checks=$((checks + 1))
done < <(grep '^zav ' "$README")
soxi -s heard.wav heard.caf | uniq | wc -l | grep -qx 1 || fail "the copy has another length"
[ "$checks" -ge 4 ] || fail "only $checks commands"
done_with readme
