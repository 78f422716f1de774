#!/usr/bin/env bash
# A file is heard, sample by sample.
# shellcheck source=../support/live.sh
source "$(dirname "$0")/../support/live.sh"

sox -n -r 48000 -c 2 -b 16 music.wav synth 2.7 sine 300-5000 pinknoise gain -6
sox music.wav music.raw
# Where sound begins: with the first byte that is not zero.
first_loud() { { cmp "$1" /dev/zero || true; } | grep -oP 'byte \K[0-9]+'; }
from_first_loud() { tail -c "+$(first_loud "$1")" "$1"; }
from_first_loud music.raw >expected.raw
size=$(wc -c <expected.raw)
has_all() { [ "$(from_first_loud heard.raw | wc -c)" -ge "$size" ]; }
plays_every_sample() {
    listen_to_speaker heard.raw
    "$EXAMPLES/play_file" music.wav || fail 'play_file failed'
    until_true has_all
    kill $!
    cmp expected.raw <(from_first_loud heard.raw | head -c "$size") >why.txt
}
in_some_try plays_every_sample

lame --silent music.wav music.mp3
"$EXAMPLES/play_file" music.mp3
ffmpeg -nostdin -v error -i music.wav music.m4a
refused 1 'music.m4a: neither PCM nor MP3, which is what this example plays' "$EXAMPLES/play_file" music.m4a
export PULSE_SERVER=unix:/nonexistent
refused 1 'music.wav: AudioQueueError.failure(-66680)' "$EXAMPLES/play_file" music.wav
done_with play_file
