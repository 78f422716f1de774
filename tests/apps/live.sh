#!/usr/bin/env bash
# zav record, play and devices beside a sound server (tests/support/sound-server), checked by other
# programs.
#
#     sound-server pulseaudio|pipewire tests/apps/live.sh SERVER_NAME
support=$(realpath "$(dirname "$0")/../support")
# shellcheck source=../support/live.sh
source "$(dirname "$0")/../support/live.sh"
log=$work/log
: >"$log"

# The shell makes background processes ignore SIGINT. These must not.
interruptible=(env --default-signal=INT)

sox -D "$SPEECH" -r 48000 speech.wav trim 1 2
sox -D speech.wav -t raw speech.raw

# raw_of FILE: the audio as ffmpeg decodes it: 16 bits, 48000 Hz, mono. zav converts the library's own
# containers, which ffmpeg does not know.
raw_of() {
    local file=$1
    case $1 in
        *.zsbc) file=$1.sbc && "$ZAV" copy "$1" "$file" ;;
        *.zopus) file=$1.wav && "$ZAV" decode "$1" "$file" ;;
    esac
    ffmpeg -nostdin -v error -i "$file" -f s16le -ar 48000 -ac 1 -
}

# is_heard FILE HEARD LIKENESS: the mono recording HEARD contains the mono FILE, delayed, with at least
# this correlation in per cent. Raw, 16 bits, 48000 Hz.
is_heard() {
    local raw=(-t raw -e signed -b 16 -r 48000 -c 1)
    sox -D "${raw[@]}" "$1" left.wav silence 1 0.01 0.2%
    sox -D "${raw[@]}" "$2" right.wav silence 1 0.01 0.2% pad 0.5
    sox -M left.wav right.wav compared.wav
    "$EXAMPLES/compare_channels" compared.wav >why.txt 2>&1
    awk -v limit="$3" '/^likeness/ { found = $2 >= limit } END { exit !found }' why.txt
}

# --- devices
"$ZAV" devices >devices.txt
grep -q '^\* speaker .*stereo, 48000 Hz$' devices.txt || fail "$(cat devices.txt)"
grep -q '^\* mic.monitor .*mono, 48000 Hz$' devices.txt || fail "$(cat devices.txt)"
grep -qi "^Server .*$1" devices.txt || fail "$(cat devices.txt)"
"$ZAV" devices --json | grep -q '"name": "mic.monitor"' || fail "devices --json"
if [ "$1" = pulseaudio ]; then # PipeWire uses its default device instead
    PULSE_SINK=nosuch refused 1 "zav: the sound server has no such device at PULSE_SERVER=$PULSE_SERVER, PULSE_SINK=nosuch; use one that 'zav devices' lists" \
        "$ZAV" play "$SPEECH"
fi

# --- play: every sample once. Noise, because in noise every error changes the samples.
noise() { # FRAMES NAME
    sox -R -n -b 16 -r 48000 -c 2 "$2.wav" synth "$1s" whitenoise vol 0.5
    sox -D "$2.wav" -t raw "$2.raw"
}
noise 144000 long
noise 48001 second
sox -D second.wav second.aiff  # with the high bytes first
noise 100 short
sox -R -n -b 16 -r 48000 -c 1 mono.wav synth 30000s whitenoise vol 0.5
sox -D mono.wav -t raw mono.raw remix 1 1
plays_exactly() { # NAME.TYPE [OPTION...]
    hear terminal "$ZAV" play "${@:2}" "$1" >shown.txt || return 1
    tail -n 1 shown.txt >why.txt
    cmp -s <(without_silence heard.raw 4) <(without_silence "${1%.*}.raw" 4)
}
in_some_try plays_exactly long.wav
in_some_try plays_exactly second.aiff --delay 0.6
in_some_try plays_exactly short.wav
in_some_try plays_exactly mono.wav

# --- record: audio that is played into the microphone.
record() { # FILE [OPTION...]: in the background; returns when the file contains audio
    rm -f "$1"
    in_background "${interruptible[@]}" "$ZAV" record "${@:2}" "$1"
    until_true test -s "$1"
}
speak() { paplay --device=mic --raw --format=s16le --rate=48000 --channels=1 speech.raw; }
is_spoken() { # FILE: raw
    cmp -s <(without_silence "$1" 2) <(without_silence speech.raw 2)
}
records_exactly() {
    record recorded.wav
    speak
    until_true grows_by recorded.wav "$(stat -c %s recorded.wav)" 60000
    stop_last INT || fail "record, ended by Ctrl-C: exit $?"
    sox -D recorded.wav -t raw recorded.raw
    [ "$(soxi -s recorded.wav)" = $(($(stat -c %s recorded.raw) / 2)) ] ||
        fail "the header of recorded.wav"
    is_spoken recorded.raw
}
in_some_try records_exactly
"$ZAV" record --seconds 1.3 --rate 16000 --channels 2 timed.wav
[ "$(soxi -s timed.wav) $(soxi -r timed.wav) $(soxi -c timed.wav)" = "20800 16000 2" ] ||
    fail "record --seconds: $(soxi timed.wav)"

types=(flac caf au m4a mp4 aac opus sbc zsbc zopus)
[ -z "${QUICK:-}" ] || types=(flac m4a zopus) # sanitized programs are slow
records_all_types() {
    local type i recorders=()
    for type in "${types[@]}"; do
        record "said.$type"
        recorders+=("${processes[-1]}")
    done
    speak
    # The files are written through buffers. Two more seconds empty all of them.
    "$ZAV" record --seconds 2 more.wav
    kill -TERM "${recorders[@]}"
    for i in "${!types[@]}"; do
        wait "${recorders[i]}" || fail "record said.${types[i]}: exit $?"
    done
    processes=()
    for type in "${types[@]}"; do
        raw_of "said.$type" >said.raw
        case $type in
            flac | caf | au) is_spoken said.raw ;;
            *) is_heard speech.raw said.raw 95 ;;
        esac || {
            echo "said.$type" >>why.txt
            return 1
        }
    done
}
in_some_try records_all_types

# --- play: every encoding, against ffmpeg's decoding.
for coded in mp3:libmp3lame ac3:ac3 m4a:alac aac:aac flac:flac ogg:libvorbis opus:libopus wav:pcm_mulaw; do
    ffmpeg -nostdin -v error -i speech.wav -c:a "${coded#*:}" "coded.${coded%:*}"
done
for type in sbc zsbc zopus; do
    "$ZAV" encode speech.wav "coded.$type"
done
plays_like_ffmpeg() { # FILE
    hear "$ZAV" play "$1" || return 1
    sox -D -t raw -e signed -b 16 -r 48000 -c 2 heard.raw -c 1 -t raw heard.mono.raw
    is_heard decoded.raw heard.mono.raw 99
}
plays_alone() ( # TYPE: on a speaker of its own, in a folder of its own
    processes=()
    trap '[ ${#processes[@]} = 0 ] || kill "${processes[@]}"' EXIT
    mkdir "$1"
    cd "$1" || exit
    export PULSE_SINK=speaker_$1
    raw_of "../coded.$1" >decoded.raw
    in_some_try plays_like_ffmpeg "../coded.$1"
)
types=(mp3 ac3 m4a aac flac ogg opus wav sbc zsbc zopus)
[ -z "${QUICK:-}" ] || types=(mp3 m4a zsbc zopus)
players=()
for type in "${types[@]}"; do
    add_speaker "speaker_$type"
    plays_alone "$type" &
    players+=($!)
done
for pid in "${players[@]}"; do
    wait "$pid" || fail 'a coded file'
done

# --- a full disk: the file keeps the recording until then.
said=$( (
    ulimit -f 100
    "$ZAV" record --rate 16000 full.wav 2>&1 >/dev/null
) | tail -n 1 || true)
[ "$said" = 'zav: full.wav: the disk is full or the file is too large for it; use a disk with more room (the recording is kept, except for at most its last two seconds)' ] ||
    fail "a full disk: $said"
[ "$(soxi -s full.wav)" -ge 51000 ] || fail "full.wav holds $(soxi -s full.wav) samples"

# --- levels on a terminal, also for compressed files.
shows() { # EXPRESSION COMMAND...
    local output
    output=$(terminal "${@:2}")
    printf '%s' "$output" | grep -qE "$1" || fail "${*:2}: $output"
}
sox -D -n -b 16 -r 48000 -c 2 softly.wav synth 1 square 100 vol 0.5
sox -D -n -b 16 -r 48000 -c 1 roaring.wav synth 60 square 100
ffmpeg -nostdin -v error -i softly.wav -c:a alac softly.m4a
shows 'softly\.wav: 1\.00 s, peak -6\.0 dB, 0 clips, [0-9]+ underruns?' "$ZAV" play softly.wav
shows '0:00\.[0-9] / 0:01\.0  \[#####-\]  peak -6\.0 dB  0 clips  [0-9]+ underruns?  [0-9.]+ s queued' "$ZAV" play softly.m4a
in_background paplay --device=mic roaring.wav
is_playing() { pactl list sink-inputs short | grep -q .; }
until_true is_playing
shows '0:0[01]\.[0-9]  \[######\]  peak -?0\.[01] dB  [1-9][0-9]* clips' \
    "$ZAV" record --seconds 1.5 roaring.m4a
# The summary shows the length of the file, which may exceed what was asked for.
terminal "$ZAV" record --seconds 0.73 roaring.flac >summary.txt
recorded=$(printf '%.2f' "$(soxi -D roaring.flac)")
grep -qE "roaring\.flac: $recorded s, [0-9]+ KiB, peak -?0\.[01] dB, [1-9][0-9]* clips, [0-9]+ overruns?" \
    summary.txt || fail "$recorded s: $(cat summary.txt)"
stop_last TERM || true

# --- ends
noise 960000 endless
in_background "${interruptible[@]}" "$ZAV" play endless.wav
until_true is_playing
code=0
stop_last INT || code=$?
[ $code = 130 ] || fail "play, ended by Ctrl-C: exit $code"

# The server dies while the rest of a compressed file is queued, and another server answers at once.
# (At 8 kbit/s the whole file is queued when it begins to play.)
ffmpeg -nostdin -v error -i "$SPEECH" -t 7 -ar 16000 -b:a 8k slow.mp3
# shellcheck disable=SC2016
in_background env FIRST="$PULSE_SERVER" "$support/sound-server" pulseaudio \
    bash -c 'PULSE_SERVER="$FIRST $PULSE_SERVER" exec "$ZAV" play slow.mp3'
players=("${processes[-1]}")
until_true is_playing
in_background "${interruptible[@]}" "$ZAV" play endless.wav
players+=("${processes[-1]}")
record kept.wav
is_playing_both() { [ "$(pactl list sink-inputs short | wc -l)" -ge 2 ]; }
until_true is_playing_both
until_true grows_by kept.wav 0 50000
# shellcheck disable=SC2086
kill -KILL $SOUND_SERVER_PIDS
for pid in "${processes[-1]}" "${players[@]}"; do
    code=0
    wait "$pid" || code=$?
    [ $code = 1 ] || fail "exit $code after the server's end: $(cat "$log")"
done
processes=()
grep -q "zav: slow.mp3: the sound server or its device went away after" "$log" || fail "$(cat "$log")"
grep -q "zav: kept.wav: the sound server or its device went away; the" "$log" || fail "$(cat "$log")"
grep -q "zav: endless.wav: the sound server or its device went away after" "$log" || fail "$(cat "$log")"
[ "$(soxi -s kept.wav)" -gt 20000 ] || fail "too little was kept: $(soxi kept.wav)"

nowhere="no sound server or no device at PULSE_SERVER=unix:/nonexistent; start PulseAudio or PipeWire (pipewire-pulse)"
for arguments in "record none.wav" "play long.wav" "play --delay 1 long.wav" "play --delay 30 long.wav" devices; do
    # shellcheck disable=SC2086
    refused 1 "zav: $nowhere" env PULSE_SERVER=unix:/nonexistent "$ZAV" $arguments
done
[ ! -e none.wav ] || fail "a file without a recording"

done_with live
