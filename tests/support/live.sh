# shellcheck shell=bash
# Sourced by tests that run beside a sound server of their own (`sound-server`).
# shellcheck source=shell.sh
source "$(dirname "${BASH_SOURCE[0]}")/shell.sh"

processes=()
end_processes() {
    local pid
    for pid in "${processes[@]}"; do
        kill "$pid" 2>>"$work/log" || true
    done
    wait
    rm -rf "$work"
}
trap end_processes EXIT

in_background() { # COMMAND...
    "$@" </dev/null 2>>"$work/log" &
    processes+=($!)
}

until_true() { # COMMAND...
    local tries
    for ((tries = 0; tries < 600; ++tries)); do
        ! "$@" >/dev/null 2>>"$work/log" || return 0
        sleep 0.05
    done
    fail "in vain: $* $(cat "$work/log")"
}

# in_some_try COMMAND...: passes if the command does in one of some tries. A command that fails leaves
# its reason in why.txt.
#
# On a busy machine audio comes too late, for paplay and parec too. PulseAudio then plays a gap. PipeWire
# without real-time rights leaves out or repeats whole blocks, and does so more often.
in_some_try() {
    local try tries=3
    [ "${SOUND_SERVER:-}" != pipewire ] || tries=6
    for ((try = 0; try < tries; ++try)); do
        if "$@"; then
            checks=$((checks + 1))
            return 0
        fi
    done
    fail "$* $(cat why.txt 2>>"$work/log" || true)"
}

stop_last() { # SIGNAL: ends the last process in the background; its exit code.
    local pid=${processes[-1]} code=0
    kill -"$1" "$pid"
    unset 'processes[-1]'
    wait "$pid" || code=$?
    return $code
}

grows_by() { # FILE SIZE BYTES
    [ "$(stat -c %s "$1")" -gt $(($2 + $3)) ]
}

# add_speaker NAME: another device to play on, for a program that PULSE_SINK sends there.
add_speaker() {
    # See `sound-server` for norewinds.
    local options=(rate=48000 channels=2)
    [ "$SOUND_SERVER" = pipewire ] || options+=(norewinds=1)
    pactl load-module module-null-sink "sink_name=$1" "${options[@]}" >>"$work/log"
}

# hear COMMAND...: records in heard.raw what the command plays on the speaker, or on PULSE_SINK. Adds
# silence, so that all of it is there. Raw, 16 bits, 48000 Hz, stereo.
hear() {
    : >heard.raw
    in_background parec "--device=${PULSE_SINK:-speaker}.monitor" --raw --format=s16le --rate=48000 --channels=2 \
        --latency-msec=20 >heard.raw
    until_true test -s heard.raw
    "$@" || return 1
    until_true grows_by heard.raw "$(stat -c %s heard.raw)" 100000
    stop_last TERM || true
}

# without_silence FILE FRAME_SIZE: from the first frame that is not silent to the last one, in text.
without_silence() {
    od -An -v -t x1 -w"$2" "$1" | awk '/[1-9a-f]/ { for (; held > 0; --held) print silence
                                                    print; begun = 1; next }
                                       begun { silence = $0; ++held }'
}

# The tone of the tests: no whole number of its periods lies in a frame, a buffer or a half of one,
# so that what is repeated or missing is heard as a click.
tone_in_hz=1130

# The microphone hears the tone from now on.
tone_in_microphone() {
    sox -n -r 48000 -c 1 -b 16 tone.wav synth 120 sine "$tone_in_hz" gain -6
    in_background paplay --device=mic tone.wav
    in_background parec --device=mic.monitor --raw --latency-msec=20 >microphone.raw
    has_tone() { [ -n "$(head -c 1000000 microphone.raw | tr -d '\0' | head -c 1000 | tr '\0' x)" ]; }
    until_true has_tone
    kill $!
}

loudness() { # FILE [EFFECT...]: RMS in dB
    sox "$1" -n "${@:2}" stats 2>&1 | awk '/RMS lev dB/ { print $4 == "-inf" ? -200 : int($4) }'
}

# is_pure_tone FILE: the tone without a click or a gap, which would leave something beside it.
is_pure_tone() {
    local tone rest
    tone=$(loudness "$1")
    rest=$(loudness "$1" bandreject "$tone_in_hz" 200h bandreject "$tone_in_hz" 200h trim 0.2 -0.05)
    [ "$tone" -gt -30 ] || fail "$1: no tone: $tone dB"
    echo "$1: a tone of $tone dB with $rest dB beside it" >why.txt
    [ "$rest" -lt $((tone - 35)) ]
}
