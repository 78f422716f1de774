#!/usr/bin/env bash
# Encodes and decodes Opus in both kinds of file, checked by opus-tools, ffmpeg and libopus' own decoder.
# shellcheck source=../support/shell.sh
source "$(dirname "$0")/../support/shell.sh"

rates=(8000 12000 16000 24000 48000)
[ -z "${QUICK:-}" ] || rates=(16000 24000)

figure() { # NAME FILE: a figure of 'zav info --json'
    "$ZAV" info --json "$2" | grep -oP "\"$1\": \K[0-9.]+"
}

# The samples that libopus makes of a file, without those that the file marks as padding.
libopus_samples() {
    ffmpeg -nostdin -v error -c:a libopus -i "$1" -f s16le -
}

for rate in "${rates[@]}"; do
    for channels in 1 2; do
        what="$rate Hz, $channels channels"
        sox -D "$SPEECH" -r "$rate" -c "$channels" in.wav trim 1 3.1
        "$ZAV" encode in.wav out.opus

        # 51 packets of 60 ms. The 40 ms after them are left out.
        [ "$(figure packets out.opus)" = 51 ] || fail "$what: $(figure packets out.opus) packets"
        [ "$(figure mFramesPerPacket out.opus)" = 2880 ] || fail "$what: not 60 ms"
        opusinfo out.opus >opusinfo.txt 2>&1 || fail "$what: $(cat opusinfo.txt)"
        ! grep -qi 'warning\|error' opusinfo.txt || fail "$what: $(cat opusinfo.txt)"
        grep -q "Original sample rate: $rate Hz" opusinfo.txt || fail "$what: $(cat opusinfo.txt)"
        grep -q 'Playback length: 0m:03.053s' opusinfo.txt || fail "$what: $(cat opusinfo.txt)"
        [ -z "$(ffprobe -v warning -show_streams out.opus 2>&1 >/dev/null)" ] ||
            fail "$what: ffprobe complains"

        "$ZAV" decode out.opus ours.wav
        sox -D ours.wav -t raw ours.raw
        libopus_samples out.opus >theirs.raw
        same ours.raw theirs.raw "$what, decoded"
        opusdec --quiet --rate 48000 out.opus opusdec.wav
        [ "$(soxi -s opusdec.wav)" = "$(soxi -s ours.wav)" ] || fail "$what: opusdec hears another length"

        # The library's container holds the same packets, except at two rates.
        if [ "$rate" = 12000 ] || [ "$rate" = 24000 ]; then
            refused 1 "zav: in.wav: $rate Hz; use 8000, 16000 or 48000 Hz for Opus container (to convert: sox in.wav -r 48000 converted.wav)" \
                "$ZAV" encode in.wav out.zopus
            continue
        fi
        "$ZAV" encode in.wav out.zopus
        "$ZAV" copy out.zopus copy.opus
        same copy.opus out.opus "$what, copied into Ogg"
        [ "$(figure durationSeconds out.zopus)" = 3.06 ] || fail "$what: duration of the container"
        "$ZAV" copy out.opus copy.zopus
        same <(tail -c +49 copy.zopus) <(tail -c +49 out.zopus) "$what, copied out of Ogg"
        "$ZAV" decode out.zopus ours.wav
        [ "$(soxi -s ours.wav)" = $((51 * rate * 60 / 1000)) ] || fail "$what: decoded length"
        [ "$(soxi -r ours.wav)" = "$rate" ] || fail "$what: decoded rate"
    done
done

# Files of other programs: opusenc with packets of 20 ms and 2.5 ms, ffmpeg, and Opus in MP4.
sox -D "$SPEECH" -r 48000 in.wav
opusenc --quiet in.wav opusenc.opus
opusenc --quiet --framesize 2.5 in.wav short.opus
ffmpeg -nostdin -v error -i in.wav -c:a libopus ffmpeg.opus
ffmpeg -nostdin -v error -i opusenc.opus -c copy opusenc.mp4
for file in opusenc.opus short.opus ffmpeg.opus; do
    "$ZAV" decode "$file" ours.wav
    sox -D ours.wav -t raw ours.raw
    libopus_samples "$file" >theirs.raw
    same ours.raw theirs.raw "$file, decoded"
done
# A gain of -3 dB in the header. ffmpeg copies the header's bytes unchanged.
ffmpeg -nostdin -v error -i opusenc.mp4 -c copy -f mp4 -y gain.mp4
offset=$(grep -abo dOps gain.mp4 | head -1 | cut -d: -f1)
printf '\375\000' | dd of=gain.mp4 bs=1 seek=$((offset + 12)) conv=notrunc status=none
"$ZAV" decode gain.mp4 quiet.wav
"$ZAV" decode opusenc.mp4 loud.wav
rms() { sox "$1" -n stat 2>&1 | awk '/RMS.*amplitude/ { print $3 }'; }
awk -v quiet="$(rms quiet.wav)" -v loud="$(rms loud.wav)" \
    'BEGIN { exit !(quiet / loud > 0.70 && quiet / loud < 0.71) }' || fail "gain of 3 dB"

# Two streams one after the other in one file: zav must not silently decode half of it.
cat opusenc.opus opusenc.opus >chained.opus
refused 1 "zav: chained.opus: damaged; use a file that is whole" "$ZAV" decode chained.opus out.wav
"$ZAV" info chained.opus | grep -q '^Packets *[0-9]*, then damaged$' || fail "info of a chained file"

"$ZAV" copy opusenc.mp4 copy.opus
same <(raw copy.opus) <(raw opusenc.opus) "packets out of MP4"

# Packets of length 0, and a file that is cut off.
"$ZAV" encode in.wav out.zopus
{
    head -c 48 out.zopus
    printf '\3\0\0\0\377\377\377\377\x58\x01\x02\0\0\0\0\0\0\0\0'
} >gap.zopus
[ "$(figure gaps gap.zopus)" = 1 ] || fail "gaps: $("$ZAV" info gap.zopus)"
"$ZAV" info --packets gap.zopus | grep -qE '^ +0 +0\.000 s +3 +2880$' ||
    fail "packets: $("$ZAV" info --packets gap.zopus)"
head -c 60 out.zopus >cut.zopus
refused 1 "zav: cut.zopus: cut off in packet 0; use a file that is whole (to keep what is whole: head -c 48 cut.zopus > whole.zopus)" "$ZAV" decode cut.zopus out.wav
"$ZAV" info cut.zopus | grep -q '^Packets *0, then damaged$' || fail "info of a cut container"

# The SBC container is written, described and copied, but not decoded.
"$ZAV" encode "$SPEECH" speech.sbc
"$ZAV" encode "$SPEECH" speech.zsbc
same <(tail -c +65 speech.zsbc) speech.sbc "frames in the SBC container"
refused 1 "zav: speech.zsbc: an SBC container, which the library does not read back, by design: it does not store the channel mode; use raw SBC frames (to copy: zav copy speech.zsbc speech.sbc)" \
    "$ZAV" decode speech.zsbc out.wav
for mode in stereo joint dual; do
    sox -D -M "$SPEECH" "$SPEECH" two.wav trim 0 1
    "$ZAV" encode --mode $mode --bitpool 53 two.wav two.sbc
    "$ZAV" copy two.sbc two.zsbc
    "$ZAV" copy two.zsbc back.sbc
    same back.sbc two.sbc "$mode frames through the SBC container"
    "$ZAV" info two.zsbc | grep -q "^SBC  *$mode, bitpool 53" || fail "info of $mode: $("$ZAV" info two.zsbc)"
done

# Options that do not go together.
refused_all 2 <<'END'
encode --bitpool 30 in.wav out.opus | --bitpool: for SBC only, but out.opus is to hold Opus
encode --codec opus in.wav out.sbc | out.sbc: not a name for Opus packets; use NAME.opus, .ogg or .zopus
encode --codec sbc in.wav out.opus | out.opus: not a name for SBC frames; use NAME.sbc or .zsbc
END
"$ZAV" encode --codec opus in.wav out.mp4
[ "$(ffprobe -v error -show_entries stream=codec_name -of csv=p=0 out.mp4)" = opus ] || fail "Opus in MP4"
sox -D in.wav in.aiff
sox -D in.wav short.wav trim 0 2879s
refused_all 1 <<'END'
encode in.aiff out.opus | in.aiff: 16-bit signed integer PCM, big-endian, mono, 48000 Hz; use little-endian samples (to convert: sox in.aiff -e signed-integer -b 16 converted.wav)
encode short.wav out.zopus | short.wav: 2879 sample frames; use at least the 2880 of one Opus packet
END
done_with "opus"
