#!/usr/bin/env bash
# Checks the live demo's figures, and that the demo leaves nothing behind, also if it is interrupted.
#
#     live_demo.sh SERVER ORIGIN    what the demo has to print about its sound server
# shellcheck source=../support/live.sh
source "$(dirname "$0")/../support/live.sh"

figure() { grep -oP "^$1 +\K.*" printed.txt || fail "the demo prints no $1: $(cat printed.txt)"; }

mkdir tmp
export TMPDIR=$work/tmp  # identifies the demo's processes and files
nothing_is_left() {
    ! pgrep -f "$TMPDIR/" >left.txt || fail "processes are left: $(cat left.txt)"
    [ -z "$(ls "$TMPDIR")" ] || fail "files are left: $(ls "$TMPDIR")"
    if pactl info >/dev/null 2>&1; then
        ! pactl list short modules | grep zav_demo || fail 'modules are left'
        [[ $(pactl info) == *'Default Sink: speaker'* ]] || fail 'another default device'
    fi
}

# Computed by sox: what was said, delayed, minus what was heard.
signal_to_noise() { # DELAY_IN_MS
    local samples
    samples=$(awk -v delay="$1" 'BEGIN { printf "%.0f", delay * 64 }')
    sox out/said.wav late.wav rate 64000 pad "${samples}s@0" &&
        sox out/heard.wav heard.wav rate 64000 &&
        sox -m -v 1 late.wav -v -1 heard.wav difference.wav || fail 'sox'
    echo $(($(loudness heard.wav) - $(loudness difference.wav)))
}

# shows SERVER ORIGIN: fails if a figure is wrong. Returns whether what was heard is what was said, which
# a busy machine can prevent.
shows() {
    local sent delay ratio printed
    "$LIVE_DEMO" "$BUILD" out >printed.txt || fail "the demo: exit $?"
    nothing_is_left
    [[ $(figure 'sound server') == *"$1"* && $(figure 'sound server') == *"$2" ]] ||
        fail "sound server: $(figure 'sound server')"

    read -r sent _ <<<"$(figure packets)"
    [ "$(figure packets)" = "$sent SBC frames went to the accessory, $sent came back" ] ||
        fail "packets: $(figure packets)"
    [ $((sent * 8)) -gt 11000 ] || fail "only $sent packets"
    [[ $(figure lost) == '0 '* ]] || fail "lost: $(figure lost)"

    delay=$(figure delay)
    delay=${delay% ms}
    awk -v delay="$delay" 'BEGIN { exit !(delay > 600 && delay < 3000) }' || fail "delay: $delay ms"
    ratio=$(signal_to_noise "$delay") || exit 1
    printed=$(figure likeness | grep -oP 'noise \K-?[0-9]+') || fail "$(cat printed.txt)"
    [ $((printed - ratio)) -le 3 ] && [ $((ratio - printed)) -le 3 ] ||
        fail "signal to noise by sox: $ratio dB, printed $printed"
    [ "$(head -c 8 out/waveforms.png | od -An -tx1 | tr -d ' \n')" = 89504e470d0a1a0a ] ||
        fail 'no picture'
    printf 'signal to noise: %s dB, underruns: %s\n' "$ratio" "$(figure underruns)" | tee -a why.txt
    [ "$ratio" -ge 20 ]
}
in_some_try shows "$1" "$2"

"$LIVE_DEMO" "$BUILD" interrupted >printed.txt &
demo=$!
until_true grep -q '^speech.wav' printed.txt
kill "$demo"
! wait "$demo" || fail 'an interrupted demo exits with 0'
nothing_is_left
done_with live_demo
