#!/usr/bin/env bash
# Checks the demo's figures against the files that it leaves.
# shellcheck source=../support/shell.sh
source "$(dirname "$0")/../support/shell.sh"

"$DEMO" "$BUILD" out >printed.txt
figure() { grep -oP "^$1 +\K.*" printed.txt || fail "the demo prints no $1"; }

"$ZAV" encode "$SPEECH" speech.sbc
"$ZAV" decode speech.sbc heard.wav
same out/heard.wav heard.wav "what was heard and what the tool makes"
[[ $(figure packets) == "$(($(stat -c %s speech.sbc) / 72)) SBC frames "* ]] || fail "$(figure packets)"
[[ $(figure bytes) == *" $(stat -c %s speech.sbc) of SBC" ]] || fail "$(figure bytes)"

# The ratio computed by sox: the input, delayed by 73 samples, minus what was heard.
sox "$SPEECH" late.wav pad 73s
sox -m -v 1 late.wav -v -1 out/heard.wav difference.wav
power() { sox "$1" -n stats 2>&1 | awk '/RMS lev dB/ { print $4 }'; }
expected=$(awk -v signal="$(power "$SPEECH")" -v noise="$(power difference.wav)" \
    'BEGIN { printf "%d", signal - noise }')
printed=$(figure 'signal to noise' | grep -oE '^[0-9]+')
[ $((printed - expected)) -le 1 ] && [ $((expected - printed)) -le 1 ] ||
    fail "signal to noise: $printed dB, by sox $expected dB"
[ "$(head -c 8 out/waveforms.png | od -An -tx1 | tr -d ' \n')" = 89504e470d0a1a0a ] ||
    fail "no picture"
done_with demo
