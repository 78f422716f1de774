#!/usr/bin/env bash
# Errors: what zav prints and which files it leaves.
# shellcheck source=../support/shell.sh
source "$(dirname "$0")/../support/shell.sh"

cp "$SPEECH" speech.wav
"$ZAV" encode speech.wav speech.sbc
nothing_new() { # LEFT_BEFORE: no file has appeared since
    [ "$(ls -A)" = "$1" ] || fail "left behind: $(ls -A)"
}

# Unsuitable input.
sox -D speech.wav -r 22050 rate.wav trim 0 0.1
sox -D speech.wav -b 24 deep.wav trim 0 0.1
sox -D -M speech.wav speech.wav speech.wav three.wav trim 0 0.1
sox -D three.wav -b 24 -r 22050 converted.wav
sox -D speech.wav short.wav trim 0 100s
sox -D -M speech.wav speech.wav two.wav trim 0 0.1
"$ZAV" encode --mode joint two.wav joint.sbc
head -c 20000 /dev/zero >zeros.wav
head -c 30 speech.wav >cut.wav
mkdir folder
touch stdout.txt stderr.txt
before=$(ls -A)
mkfifo pipe
refused_all 1 <<'END'
encode rate.wav out.sbc | rate.wav: 22050 Hz; use 16000, 32000, 44100 or 48000 Hz (to convert: sox rate.wav -r 16000 converted.wav)
encode deep.wav out.sbc | deep.wav: 24-bit signed integer PCM, little-endian, mono, 16000 Hz; use 16-bit PCM (to convert: sox deep.wav -e signed-integer -b 16 converted.wav)
encode converted.wav out.opus | converted.wav: 24-bit signed integer PCM, little-endian, 3 channels, 22050 Hz; use 16-bit PCM (to convert: sox converted.wav -e signed-integer -b 16 -c 2 -r 48000 converted2.wav)
encode three.wav out.sbc | three.wav: 3 channels; use mono or stereo (to convert: sox three.wav -c 2 converted.wav)
encode short.wav out.sbc | short.wav: 100 sample frames; use at least the 128 of one SBC frame
encode --mode joint speech.wav out.sbc | speech.wav: mono audio for --mode joint; use --mode mono
encode two.wav out.sbc --mode mono | two.wav: stereo audio for --mode mono; use --mode dual, stereo or joint
decode speech.wav out.wav | speech.wav: 16-bit signed integer PCM, little-endian, mono, 16000 Hz; use SBC or Opus (to copy: zav copy speech.wav out.wav)
copy speech.wav out.sbc | out.sbc: 16-bit signed integer PCM, little-endian, mono, 16000 Hz cannot be written to raw SBC; use .wav, .rf64, .w64, .aifc or .caf (to encode: zav encode speech.wav out.sbc)
copy speech.sbc out.wav | out.wav: SBC, mono, 16000 Hz cannot be written to WAVE; use .sbc (to decode: zav decode speech.sbc out.wav)
encode speech.sbc out.sbc | speech.sbc: SBC, mono, 16000 Hz; use 16-bit PCM (to decode: zav decode speech.sbc decoded.wav)
decode joint.sbc out.wav | joint.sbc: joint frames of 77 bytes, where plain stereo has 76; use mono or plain stereo (to convert: ffmpeg -i joint.sbc -c:a pcm_s16le converted.wav)
info missing.wav | missing.wav: no such file; give the name of an audio file
info folder | folder: a folder, a pipe or a device; give the name of an audio file
info pipe | pipe: a folder, a pipe or a device; give the name of an audio file
copy cut.wav out.wav | cut.wav: damaged; use a file that is whole
encode zeros.wav out.sbc | zeros.wav: not an audio file of a known type; use one that 'zav info --help' lists
END
rm pipe
cp rate.wav "two words'.wav"
refused 1 "zav: two words'.wav: 22050 Hz; use 16000, 32000, 44100 or 48000 Hz (to convert: sox 'two words'\\''.wav' -r 16000 converted.wav)" \
    "$ZAV" encode "two words'.wav" out.sbc
rm "two words'.wav"
nothing_new "$before"

# Damage in the middle: the output does not appear.
cp speech.sbc damaged.sbc
printf '\0' | dd of=damaged.sbc bs=1 seek=7200 conv=notrunc status=none
"$ZAV" info damaged.sbc | grep -q '^Packets *100, then damaged$' || fail "info of a damaged file"
cp speech.sbc checksum.sbc
printf '\0' | dd of=checksum.sbc bs=1 seek=7203 conv=notrunc status=none
cat speech.sbc joint.sbc >longer.sbc
"$ZAV" encode --bitpool 8 speech.wav shorter.sbc
cat speech.sbc <(head -c 24 shorter.sbc) speech.sbc >mixed.sbc
head -c 1000 speech.sbc >tail.sbc
head -c 56 speech.wav >short.wav
for file in tail.sbc short.wav; do
    "$ZAV" info $file | grep -q '^Packets .*, then damaged$' || fail "info of $file, which is cut off"
done
"$ZAV" encode speech.wav whole.zopus
head -c 48 whole.zopus >silent.zopus
head -c 40 whole.zopus >header.zopus
# Output that cannot be made.
cp speech.wav kept.wav
ln -s kept.wav link.wav
mkdir folder.sbc
ln -s nothing dangling.sbc
mkfifo pipe.sbc
refused_all 1 <<'END'
decode damaged.sbc out.wav | damaged.sbc: damaged after 100 SBC frames; use a file that is whole (to keep what is whole: head -c 7200 damaged.sbc > whole.sbc)
decode checksum.sbc out.wav | checksum.sbc: a damaged SBC frame; use whole frames as an SBC encoder writes them
decode longer.sbc out.wav | longer.sbc: frames of different lengths, the longest 77 bytes; use frames of one length
decode mixed.sbc out.wav | mixed.sbc: frames of different lengths, the longest 72 bytes; use frames of one length
copy tail.sbc out.sbc | tail.sbc: damaged after 13 SBC frames; use a file that is whole (to keep what is whole: head -c 936 tail.sbc > whole.sbc)
decode silent.zopus out.wav | silent.zopus: contains no audio; use a file with at least one packet
info header.zopus | header.zopus: cut off in its header; use a file that is whole
copy kept.wav ./kept.wav | ./kept.wav: is the input itself; use another name for the output
copy kept.wav link.wav | link.wav: is the input itself; use another name for the output
encode speech.wav folder/sub/out.sbc | folder/sub/out.sbc: cannot be created: No such file or directory; use a folder that exists and that you may write to
encode speech.wav folder.sbc | folder.sbc: is a folder; give the name of a file
encode speech.wav dangling.sbc | dangling.sbc: is a link to nothing; give the name of a file, or of a new file
encode speech.wav pipe.sbc | pipe.sbc: is not a regular file; give the name of one, or of a new file
END
same kept.wav speech.wav "the input that was also the output"

# As a user without permission to write.
mkdir private
cp speech.sbc private/old.sbc
chmod 644 private/old.sbc
chmod 755 private .
if [ "$(id -u)" = 0 ]; then
    # A copy, because other users may have no access to the build folder.
    copy_tool program
    chmod -R a+rX program
    mkdir -m 777 counters # where a coverage build may write
    unprivileged=(setpriv --reuid=65534 --regid=65534 --clear-groups
        env LD_LIBRARY_PATH="$work/program" GCOV_PREFIX="$work/counters" "$work/program/zav")
else
    unprivileged=("$ZAV")
    chmod 555 private
    chmod 444 private/old.sbc
fi
refused 1 "zav: private/new.sbc: cannot be created: Permission denied; use a folder that exists and that you may write to" \
    "${unprivileged[@]}" encode speech.wav private/new.sbc
refused 1 "zav: private/old.sbc: cannot be replaced: Permission denied; use a file that you may write to" \
    "${unprivileged[@]}" encode speech.wav private/old.sbc
same private/old.sbc speech.sbc "the file that could not be replaced"
chmod 755 private

# A disk that is full, or a limit on the size of files: 64 blocks of 1024 bytes.
cp speech.sbc out.sbc
touch stdout.txt stderr.txt
before=$(ls -A)
(
    ulimit -f 64
    refused 1 "zav: out.sbc: the disk is full or the file is too large for it; use a disk with more room" \
        "$ZAV" encode --bitpool 64 speech.wav out.sbc
    refused 1 "zav: big.wav: the disk is full or the file is too large for it; use a disk with more room" \
        "$ZAV" decode speech.sbc big.wav
)
# Not even the header fits. The message comes through a pipe, because the limit would also stop a file
# for it.
for arguments in "decode speech.sbc out.caf" "copy speech.wav out.caf" "encode speech.wav out.zopus" "copy speech.sbc out.zsbc"; do
    # shellcheck disable=SC2086
    said=$( (
        ulimit -f 0
        "$ZAV" $arguments 2>&1
    ) || true)
    [ "$said" = "zav: ${arguments##* }: the disk is full or the file is too large for it; use a disk with more room" ] ||
        fail "zav $arguments on a full disk: $said"
done
same out.sbc speech.sbc "the file that was there before"
nothing_new "$before"

# Interrupted: no unfinished file stays, and the shell sees the signal. The input is a sparse file of
# 2 GiB, so that zav is still at work.
head -c 44 speech.wav >endless.wav
printf '\377\377\377\177' | dd of=endless.wav bs=1 seek=40 conv=notrunc status=none
truncate -s 2G endless.wav
before=$(ls -A)
ends_by_term() { # WHAT: ends the last program in the background after it has made its file
    local code=0
    for _ in $(seq 1000); do
        if compgen -G '.zav-*' >/dev/null; then break; fi
        sleep 0.01
    done
    # zav keeps ignoring a signal that its parent ignored, as nohup does.
    [ "$1" != 'hung up' ] || kill -HUP $!
    kill -TERM $!
    wait $! || code=$?
    [ $code = 143 ] || fail "$1: exit $code"
    nothing_new "$before"
}
"$ZAV" encode --bitpool 2 endless.wav interrupted.sbc &
ends_by_term interrupted
(
    trap '' HUP
    exec "$ZAV" encode --bitpool 2 endless.wav interrupted.sbc
) &
ends_by_term 'hung up'

# An existing file is replaced with its permissions, a link by what it points to.
chmod 640 out.sbc
ln -s out.sbc link.sbc
"$ZAV" encode --bitpool 20 speech.wav link.sbc
[ "$(stat -c %a out.sbc)" = 640 ] || fail "permissions became $(stat -c %a out.sbc)"
[ -L link.sbc ] || fail "the link is gone"
cmp -s out.sbc speech.sbc && fail "the link's target was not replaced"
(
    umask 027
    "$ZAV" encode speech.wav fresh.sbc
)
[ "$(stat -c %a fresh.sbc)" = 640 ] || fail "a new file got permissions $(stat -c %a fresh.sbc)"

# Wrong usage.
refused 2 "zav: no verb; use record, play, encode, decode, copy, info, devices or help, see 'zav --help'" "$ZAV"
refused_all 2 <<'END'
encode --bitpool 200 speech.wav out.sbc | --bitpool 200; use 2 to 128 for mono with 8 subbands
encode --bitpool 65 --subbands 4 speech.wav out.sbc | --bitpool 65; use 2 to 64 for mono with 4 subbands
encode speech.wav out.wav | out.wav: not a name for SBC frames or Opus packets; use NAME.sbc, .zsbc, .opus, .ogg or .zopus
decode speech.sbc out.mp3 | out.mp3: not a name for PCM audio; use a name with .wav, .wave, .rf64, .w64, .aiff, .aif, .aifc, .caf, .au or .snd
copy speech.wav out | out: a name of unknown type; use a name with .wav, .wave, .rf64, .w64, .aiff, .aif, .aifc, .caf, .au, .snd, .mp3, .aac, .adts, .m4a, .mp4, .flac, .ogg, .oga, .opus, .ac3, .amr, .sbc, .zsbc or .zopus
END
for arguments in "encod a b" "bogus --help" "-q help bogus"; do
    word=${arguments#-q help }
    # shellcheck disable=SC2086
    refused 2 "zav: ${word%% *}: not a verb of zav; use record, play, encode, decode, copy, info, devices or help, see 'zav --help'" "$ZAV" $arguments
done
[ "$("$ZAV" --help 2>&1 >/dev/full)" = "zav: standard output: cannot be written; use a terminal, file or pipe with room" ] ||
    fail "help into a full disk"
for arguments in "record --seconds 5s out.wav" "record --rate 16k out.wav" "play" "encode" "encode --blocks 5 speech.wav out.sbc" \
    "encode --mode surround speech.wav out.sbc"; do
    code=0
    # shellcheck disable=SC2086
    "$ZAV" $arguments >stdout.txt 2>stderr.txt || code=$?
    [ $code = 2 ] || fail "zav $arguments: exit $code"
    [ "$(wc -l <stderr.txt)" = 1 ] || fail "zav $arguments: $(cat stderr.txt)"
    grep -q "^zav: .*; see 'zav ${arguments%% *} --help'$" stderr.txt || fail "zav $arguments: $(cat stderr.txt)"
done
refused_all 2 <<'END'
--seconds 3 record out.wav | --seconds: not an option before the verb; put it after 'record'
decode speech.sbc | OUTPUT is required: zav decode INPUT OUTPUT; see 'zav decode --help'
encode --bitpool | --bitpool: needs a value; see 'zav encode --help'
encode --bitpool 2 --bitpool 3 a b | --bitpool: given twice; see 'zav encode --help'
info a b | b: one argument too many; see 'zav info --help'
END
refused 2 "zav: --xml: no such option; see 'zav info --help'" "$ZAV" info --xml speech.wav
for verb in '' record help; do
    # shellcheck disable=SC2086
    cmp -s <("$ZAV" help $verb) <("$ZAV" $verb --help) || fail "zav help $verb"
done
done_with "errors"
