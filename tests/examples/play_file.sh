#!/usr/bin/env bash
# The loudspeaker plays every sample of a file.
# shellcheck source=../support/live.sh
source "$(dirname "$0")/../support/live.sh"

sox -n -r 48000 -c 2 -b 16 music.wav synth 2.7 sine 300-5000 pinknoise gain -6
sox music.wav music.raw
plays_every_sample() {
    hear "$EXAMPLES/play_file" music.wav || fail 'play_file failed'
    cmp <(without_silence music.raw 4) <(without_silence heard.raw 4) >why.txt
}
in_some_try plays_every_sample

lame --silent music.wav music.mp3
"$EXAMPLES/play_file" music.mp3
ffmpeg -nostdin -v error -i music.wav music.m4a
refused 1 'music.m4a: neither PCM nor MP3, which is what this example plays' "$EXAMPLES/play_file" music.m4a
export PULSE_SERVER=unix:/nonexistent
refused 1 'music.wav: AudioQueueError.failure(-66680)' "$EXAMPLES/play_file" music.wav
done_with play_file
