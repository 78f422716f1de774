#!/usr/bin/env bash
# The microphone's audio becomes SBC frames, every sample once.
# shellcheck source=../support/live.sh
source "$(dirname "$0")/../support/live.sh"

encodes_what_it_hears() {
    local size
    "$EXAMPLES/capture_to_accessory" 2.2 >frames.sbc || fail 'capture_to_accessory failed'
    size=$(stat -c %s frames.sbc)
    # SBC frames of 72 bytes and 8 ms.
    [ $((size % 72)) = 0 ] && [ $((size / 72 * 8)) -ge 2192 ] || fail "$size bytes of frames"
    sbcdec -f decoded.au frames.sbc >>log 2>&1
    sox decoded.au decoded.wav 2>>log
    is_pure_tone decoded.wav
}
tone_in_microphone
in_some_try encodes_what_it_hears

"$EXAMPLES/capture_to_accessory" 5 2>error.txt | head -c 72 >/dev/null || true
grep -q 'accessory: Broken pipe' error.txt || fail "an accessory that goes: $(cat error.txt)"
export PULSE_SERVER=unix:/nonexistent
refused 1 'capture_to_accessory: AudioQueueError.failure(-66680)' "$EXAMPLES/capture_to_accessory" 1
done_with capture_to_accessory
