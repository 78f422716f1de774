#!/usr/bin/env bash
# 'zav copy' copies compressed files of other programs packet by packet. The copies decode to the same
# samples, and ffmpeg, sox and the codecs' own tools read them without complaint.
# shellcheck source=../support/shell.sh
source "$(dirname "$0")/../support/shell.sh"

sox -D -M "$SPEECH" "$SPEECH" two.wav trim 1 3.1
sox -D two.wav -r 44100 in.wav

make() { # FILE OPTION...: by ffmpeg, which does not write its version
    local file=$1
    shift
    ffmpeg -nostdin -v error -i in.wav -fflags +bitexact -flags:a +bitexact "$@" "$file"
}
lame --quiet -V 4 in.wav song.mp3
make song.aac -c:a aac
make song.m4a -c:a aac
make lossless.m4a -c:a alac
make lossless.caf -c:a alac
make song.flac
make song.ogg -c:a libvorbis
opusenc --quiet in.wav song.opus
make song.ac3
# Debian's ffmpeg has no encoder for AMR. Any packet of mode 7 will do.
{
    printf '#!AMR\n'
    for ((i = 0; i < 50; ++i)); do
        printf '\x3c\x08\x55\x6d\x94\x4c\x71\xa1\xa0\x81\xe7\xea\xd2\x04\x24\x44\x80\0\x0e\xcd\x82\xb8\x11\x18\0\0\x97\xc4\x79\x4e\x77\x40'
    done
} >song.amr

packets_of() { # FILE: sizes and checksums of the packets as ffmpeg finds them
    ffprobe -v error -select_streams a:0 -show_packets -show_data_hash crc32 \
        -show_entries packet=size,data_hash -of default=noprint_wrappers=1 "$1" |
        grep -E '^(size|data_hash)='
}
samples_of() { # FILE: the checksum of all samples that its packets decode to, with the priming
    local options=()
    [[ $1 != *.m[4p][a4] ]] || options=(-ignore_editlist 1)
    ffmpeg -nostdin -v error "${options[@]}" -flags2 +skip_manual -i "$1" -map 0:a -f md5 -
}

# Rows of: input, outputs that can hold it
while read -r input outputs; do
    # A packet of the library does not contain the ADTS header.
    reference=$input
    if [ "$input" = song.aac ]; then
        ffmpeg -nostdin -v error -i song.aac -c copy reference.m4a
        reference=reference.m4a
    fi
    packets_of "$reference" >theirs.txt
    "$ZAV" info --json --packets "$input" >info.json
    grep -oP '"bytes": \K[0-9]+' info.json >sizes.txt
    same sizes.txt <(grep -oP '^size=\K.*' theirs.txt) "sizes of the packets of $input"

    for output in $outputs; do
        rm -f "copy.$output"
        "$ZAV" copy "$input" "copy.$output"
        if [ "$output" != aac ]; then
            packets_of "copy.$output" >ours.txt
            same ours.txt theirs.txt "packets of $input in $output"
        fi
        [ "$(samples_of "copy.$output")" = "$(samples_of "$reference")" ] ||
            fail "samples of $input in $output"
        complaints=$(ffmpeg -nostdin -v warning -i "copy.$output" -f null - 2>&1 |
            grep -vE "^\[(aac|ac3|amr) @ .* Estimating duration from bitrate") || true # no header
        [ -z "$complaints" ] || fail "ffmpeg of $input in $output: $complaints"
    done
done <<'END'
song.mp3 mp3 mp4 caf
song.aac aac m4a mp4
song.m4a aac m4a mp4
lossless.m4a m4a caf
lossless.caf m4a caf
song.flac flac ogg
song.ogg ogg
song.opus opus mp4
song.ac3 ac3 mp4
song.amr amr
END
for file in copy.mp3 copy.flac copy.ogg; do
    [ -z "$(sox "$file" -n stat 2>&1 >/dev/null | grep -i 'warn\|fail')" ] || fail "sox and $file"
done
! opusinfo copy.opus 2>&1 | grep -qi 'warning\|error' || fail "opusinfo: $(opusinfo copy.opus 2>&1)"

# The first Opus packet has a time before 0, in MP4 as in Ogg, because of the pre-skip.
first_time() { ffprobe -v error -read_intervals '%+#1' -show_entries packet=pts_time -of csv=p=0 "$1"; }
"$ZAV" copy song.opus priming.mp4
[[ $(first_time priming.mp4) == -0.00* ]] || fail "Opus in MP4 begins at $(first_time priming.mp4) s"

# Formats that the type cannot hold, and formats without a decoder.
refused_all 1 <<'END'
copy song.m4a no.caf | no.caf: AAC, stereo, 44100 Hz cannot be written to CAF; use .aac, .m4a or .mp4
copy song.flac no.caf | no.caf: FLAC, stereo, 44100 Hz cannot be written to CAF; use .flac or .ogg
copy song.opus no.wav | no.wav: Opus, stereo, 48000 Hz cannot be written to WAVE; use .mp4, .opus or .zopus (to decode: zav decode song.opus no.wav)
decode song.mp3 no.wav | song.mp3: MP3, stereo, 44100 Hz; use SBC or Opus (to convert: ffmpeg -i song.mp3 -c:a pcm_s16le converted.wav)
encode song.m4a no.opus | song.m4a: AAC, stereo, 44100 Hz; use 16-bit PCM (to convert: ffmpeg -i song.m4a -c:a pcm_s16le -ar 48000 converted.wav)
info --packets in.wav | in.wav: 16-bit signed integer PCM, little-endian, stereo, 44100 Hz, whose packets are single frames; use a compressed format for --packets
END

# Without the module, PCM and the library's own containers still work.
copy_tool program
without=(env LD_LIBRARY_PATH="$work/program" "$work/program/zav")
module=' (compressed files need libZAVAudioStreamingFFmpeg.so beside the library, and FFmpeg'\''s libraries: Debian'\''s packages libavformat59 and libavcodec59)'
refused 1 "zav: song.mp3: not an audio file of a known type; use one that 'zav info --help' lists$module" "${without[@]}" info song.mp3
refused 1 "zav: no.opus: a type that cannot be written here; use another one$module" \
    "${without[@]}" encode "$SPEECH" no.opus
"${without[@]}" encode "$SPEECH" yes.zopus
"${without[@]}" copy in.wav yes.caf
same <(raw yes.caf) <(raw in.wav) "a copy without the module"
[ -z "$(compgen -G 'no.*')" ] || fail "left behind: $(compgen -G 'no.*')"
done_with "compressed files"
