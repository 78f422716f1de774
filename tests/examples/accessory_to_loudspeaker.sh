#!/usr/bin/env bash
# The loudspeaker plays all that sbcenc encoded.
# shellcheck source=../support/live.sh
source "$(dirname "$0")/../support/live.sh"

sox -n -r 16000 -c 1 -b 16 tone.au synth 3.008 sine "$tone_in_hz" gain -6
sbcenc -b 32 tone.au >frames.sbc
is_heard() {
    local seconds
    hear "$EXAMPLES/accessory_to_loudspeaker" <frames.sbc || fail 'accessory_to_loudspeaker failed'
    # It may pause in the middle on a busy machine.
    sox -t raw -r 48000 -e signed -b 16 -c 2 heard.raw heard.wav remix 1 silence 1 2 0.1% -1 48 0.1%
    seconds=$(soxi -D heard.wav)
    echo "$seconds s" >why.txt
    awk -v seconds="$seconds" 'BEGIN { exit !(seconds > 2.99 && seconds < 3.04) }' &&
        is_pure_tone heard.wav
}
in_some_try is_heard
sbcenc -b 40 tone.au >other.sbc
refused 1 'accessory_to_loudspeaker: the first frame is not SBC of 16 kHz, mono, bitpool 32' \
    bash -c '"$0" <other.sbc' "$EXAMPLES/accessory_to_loudspeaker"

export PULSE_SERVER=unix:/nonexistent
refused 1 'accessory_to_loudspeaker: there is no sound server, or it went away' \
    bash -c '"$0" <frames.sbc' "$EXAMPLES/accessory_to_loudspeaker"
done_with accessory_to_loudspeaker
