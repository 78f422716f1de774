#!/usr/bin/env bash
# 'zav copy' copies PCM files of ffmpeg and sox bit-exactly, for every container and encoding. Both read
# zav's files without complaint.
# shellcheck source=../support/shell.sh
source "$(dirname "$0")/../support/shell.sh"

sox -D "$SPEECH" -b 32 mono.wav trim 1 0.0635
sox -D mono.wav reversed.wav reverse
sox -D -M mono.wav reversed.wav input.wav # 1016 frames, stereo, need no padding: ffmpeg would count that of W64 as audio

# container, ffmpeg's options for it, the encodings by ffmpeg's names
containers=(
    "wav|-f wav|pcm_u8 pcm_s16le pcm_s24le pcm_s32le pcm_f32le pcm_f64le pcm_alaw pcm_mulaw"
    "rf64|-f wav -rf64 always|pcm_u8 pcm_s16le pcm_s24le pcm_s32le pcm_f32le pcm_f64le pcm_alaw pcm_mulaw"
    "w64|-f w64|pcm_u8 pcm_s16le pcm_s24le pcm_s32le pcm_f32le pcm_f64le pcm_alaw pcm_mulaw"
    "aiff|-f aiff|pcm_s8 pcm_s16be pcm_s24be pcm_s32be"
    "aifc|-f aiff|pcm_s16le pcm_f32be pcm_f64be pcm_alaw pcm_mulaw"
    "caf|-f caf|pcm_s8 pcm_s16be pcm_s16le pcm_s24be pcm_s24le pcm_s32be pcm_s32le pcm_f32be pcm_f32le pcm_f64be pcm_f64le pcm_alaw pcm_mulaw"
    "au|-f au|pcm_s8 pcm_s16be pcm_s24be pcm_s32be pcm_f32be pcm_f64be pcm_alaw pcm_mulaw"
)

expected_copies=236
if [ -n "${QUICK:-}" ]; then # sanitized programs start slowly
    containers=("${containers[2]}" "${containers[4]}")
    expected_copies=60
fi

# read_by_ffmpeg FILE...: the audio bytes of each file as ffmpeg finds them in FILE.raw, the name of
# their encoding in FILE.hash. One start of ffmpeg takes longer than all that it reads here.
read_by_ffmpeg() {
    local file inputs=() outputs=() number=0
    for file in "$@"; do
        inputs+=(-i "$file")
        outputs+=(-map "$number:a" -c copy -f data -y "$file.raw"
            -map "$number:a" -c copy -f framehash -y "$file.hash")
        number=$((number + 1))
    done
    ffmpeg -nostdin -v error "${inputs[@]}" "${outputs[@]}"
}

# read_by_sox FILE...: sox counts 1016 frames in each file.
read_by_sox() {
    soxi -s "$@" >counts.txt 2>complaints.txt || fail "sox on $what: $(cat complaints.txt)"
    # libsndfile's own habits: the short form of the format chunk also for float, A-law and mu-law,
    # and AU headers without a comment.
    sed -i -e '/wave header missing extended part of fmt chunk/d' \
        -e '/au: header size 24 is too small/d' complaints.txt
    [ ! -s complaints.txt ] || fail "sox on $what: $(cat complaints.txt)"
    [ "$(grep -cx 1016 counts.txt)" = $# ] || fail "sox counts in $*: $(cat counts.txt)"
}

# Copies, or checks that zav refuses in one line that names other types.
copy_or_refusal() { # INPUT OUTPUT
    local code=0
    "$ZAV" copy "$1" "$2" 2>stderr.txt || code=$?
    if [ $code = 1 ]; then
        grep -qE "^zav: $2: .* cannot be written to [A-Z0-9]+; use \.[^ ]*(,? .*or \.[a-z]+)?$" \
            stderr.txt || fail "copy $1 $2: $(cat stderr.txt)"
        [ ! -e "$2" ] || fail "copy $1 $2 was refused and left a file"
    elif [ $code != 0 ]; then
        fail "copy $1 $2: $(cat stderr.txt)"
    fi
    return $code
}

copies=0
for row in "${containers[@]}"; do
    IFS='|' read -r extension options encodings <<<"$row"
    for encoding in $encodings; do
        what="$encoding in $extension"
        # shellcheck disable=SC2086
        ffmpeg -nostdin -v error -i input.wav -c:a "$encoding" $options -y "theirs.$extension"
        packets=$("$ZAV" info --json "theirs.$extension" | grep -oP '"packets": \K[0-9]+')
        [ "$packets" = 1016 ] || fail "$what: $packets packets"

        rm -f ours.*
        "$ZAV" copy "theirs.$extension" "same.$extension" || fail "$what into its own type"
        for target in wav rf64 w64 aiff aifc caf au; do
            copy_or_refusal "theirs.$extension" "ours.$target" || continue
            copies=$((copies + 1))
        done
        ours=(ours.*)
        read_by_ffmpeg "theirs.$extension" "same.$extension" "${ours[@]}" 2>complaints.txt ||
            fail "ffmpeg on $what: $(cat complaints.txt)"
        [ ! -s complaints.txt ] || fail "ffmpeg on $what: $(cat complaints.txt)"
        [ -s "theirs.$extension.raw" ] || fail "ffmpeg made nothing of $what"
        for_sox=()
        for file in "same.$extension" "${ours[@]}"; do
            same "$file.raw" "theirs.$extension.raw" "$what copied to $file"
            grep -qx "#codec_id 0: $encoding" "$file.hash" ||
                fail "$what copied to $file became $(grep '^#codec_id' "$file.hash")"
            case "$file $encoding" in # codes of AIFC that sox does not know
                *.aifc\ pcm_u8 | *.aifc\ pcm_s24be | *.aifc\ pcm_s32be | *.aifc\ pcm_[am]*law) ;;
                ours.*) for_sox+=("$file") ;;
            esac
        done
        read_by_sox "${for_sox[@]}"
    done
done
[ "$copies" = $expected_copies ] || fail "$copies copies were made, not $expected_copies"

# Files of sox, with its own comment chunks and an odd number of bytes.
for extension in wav aiff au caf w64; do
    sox -D "$SPEECH" -b 24 "sox.$extension" trim 0 777s
    "$ZAV" copy "sox.$extension" "copy.$extension"
    sox "sox.$extension" -t s32 theirs.raw
    sox "copy.$extension" -t s32 ours.raw
    same ours.raw theirs.raw "a $extension of sox"
done

# libsndfile's own tool finds no error.
for extension in wav rf64 w64 aiff aifc caf au; do
    ffmpeg -nostdin -v error -i input.wav -c:a pcm_mulaw -f au -y law.au
    if [ $extension = aiff ]; then
        sox -D "$SPEECH" -b 8 law.au.aiff trim 0 777s
        "$ZAV" copy law.au.aiff "law.$extension"
    else
        "$ZAV" copy law.au "checked.$extension" && mv "checked.$extension" "law.$extension"
    fi
    ! sndfile-info "law.$extension" | grep -iE 'should be|error|bad|unknown' ||
        fail "libsndfile complains of law.$extension"
done

# Raw SBC is copied unchanged.
"$ZAV" encode "$SPEECH" speech.sbc
"$ZAV" copy speech.sbc copy.sbc
same speech.sbc copy.sbc "raw SBC"
sox -M "$SPEECH" "$SPEECH" two.wav
"$ZAV" encode --mode joint two.wav joint.sbc
cat speech.sbc joint.sbc >mixed.sbc # frames of two lengths
"$ZAV" copy mixed.sbc copy.sbc
same mixed.sbc copy.sbc "SBC frames of different lengths"
done_with "pcm_containers"
