#!/usr/bin/env bash
# What zav prints if nothing fails.
# shellcheck source=../support/shell.sh
source "$(dirname "$0")/../support/shell.sh"

cp "$SPEECH" speech.wav
# Silent without a terminal. The position of an option does not matter.
for arguments in "encode speech.wav speech.sbc" "-q encode speech.wav speech.sbc" \
    "encode speech.wav speech.sbc --quiet" "decode speech.sbc back.wav" "copy back.wav back.caf"; do
    # shellcheck disable=SC2086
    output=$("$ZAV" $arguments 2>&1)
    [ -z "$output" ] || fail "zav $arguments: $output"
    checks=$((checks + 1))
done

output=$("$ZAV" encode --verbose speech.wav speech.sbc 2>&1 >/dev/null)
[ "$output" = "FileSource (16-bit signed integer PCM, little-endian, mono, 16000 Hz) -> SBCEncoder (mono, bitpool 32) -> FileSink" ] ||
    fail "the graph: $output"

# On a terminal: a line of progress and a summary. With --quiet: nothing.
output=$(terminal "$ZAV" encode speech.wav speech.sbc)
printf '%s' "$output" | grep -qE 'speech\.sbc: 10\.8[0-9] s, 1355 SBC frames, 72\.0 kbit/s, 3\.6 ms left out, [0-9]+ times real time' ||
    fail "on a terminal: $output"
# An error replaces the progress line.
sox -D speech.wav long.wav repeat 200
"$ZAV" encode long.wav long.sbc
printf '\0' | dd of=long.sbc bs=1 seek=$(($(stat -c %s long.sbc) / 72 * 72 - 69)) conv=notrunc status=none
output=$(terminal "$ZAV" decode long.sbc out.wav || true)
[[ $output == *"%"* ]] || fail "no progress was shown: $output"
[[ $output == *$'\r\e[Kzav: long.sbc: a damaged SBC frame'* ]] || fail "an error on a terminal: $output"
output=$(terminal "$ZAV" encode --quiet speech.wav speech.sbc)
[ -z "$output" ] || fail "quiet on a terminal: $output"

sox -D -M speech.wav speech.wav -r 48000 two.wav trim 1 0.3
"$ZAV" encode --mode joint --bitpool 20 --subbands 4 --blocks 8 --allocation snr two.wav speech.sbc
# 4 header bytes, 4 of scale factors, 1 of joint flags (4 bits), 8 x 20 bits
"$ZAV" info speech.sbc >printed.txt
diff - printed.txt >&2 <<'TEXT' || fail "zav info"
File            speech.sbc
Type            raw SBC
Format          SBC, stereo, 48000 Hz
Format record   '\x00sbc', flags 0x140500, 29 bytes and 32 frames a packet,
                0 bytes a frame, 2 channels, 0 bits a sample
SBC             joint, bitpool 20, 4 subbands, 8 blocks, snr allocation
Packets         450
Packet size     29 bytes
Audio           13050 bytes
Duration        0.30 s
Bit rate        348.0 kbit/s
TEXT

"$ZAV" info --json two.wav >printed.json
for line in '"formatCode": "lpcm"' '  "mFormatFlags": 12' '"packets": 14400' '"meanPacketBytes": 4.0' \
    '"durationSeconds": 0.3' '"bitsPerSecond": 1536000.0'; do
    grep -qF "  $line," printed.json || fail "zav info --json: $(cat printed.json)"
done
[ "$("$ZAV" --version)" = "zav 1.0" ] || fail "--version"
done_with "output"
