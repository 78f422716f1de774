#!/usr/bin/env bash
# A voice note is an M4A file that other programs play.
# shellcheck source=../support/live.sh
source "$(dirname "$0")/../support/live.sh"

has_seconds() { [ "$(ffprobe -v error -show_entries format=duration -of csv=p=0 note.m4a | cut -d . -f 1)" -ge 2 ]; }
notes_what_it_hears() {
    local note
    rm -f note.m4a
    "$EXAMPLES/voice_note" note.m4a <keys >prompt.txt &
    note=$!
    processes+=("$note")
    exec 3>keys
    until_true has_seconds
    echo >&3
    wait "$note" || fail 'voice_note failed'
    [ "$(ffprobe -v error -show_entries stream=codec_name,sample_rate,channels -of csv=p=0 note.m4a)" = aac,48000,1 ] ||
        fail "$(ffprobe note.m4a 2>&1)"
    [ -z "$(ffmpeg -nostdin -v error -y -i note.m4a note.wav 2>&1)" ] || fail 'ffmpeg complains'
    is_pure_tone note.wav
}
tone_in_microphone
mkfifo keys
in_some_try notes_what_it_hears
done_with voice_note
