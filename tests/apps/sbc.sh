#!/usr/bin/env bash
# 'zav encode' against sbcenc and 'zav decode' against sbcdec, byte for byte, for every value of every
# parameter that both offer.
# shellcheck source=../support/shell.sh
source "$(dirname "$0")/../support/shell.sh"

# The whole grid at one rate. Another rate is another value in the header and another table for the
# loudness allocation; one bitpool and one number of blocks prove both.
whole_grid_at=44100
bitpools_for() { # RATE CHANNELS_SHARING SUBBANDS: the ends of the range and what is used in between
    local largest=$(($2 * $3))
    [ "$1" = $whole_grid_at ] || { echo 19 && return; }
    [ "$largest" -le 250 ] || largest=250
    printf '2 19 %s' "$largest"
    if [ "$largest" -gt 64 ]; then printf ' 32 53'; fi
}
blocks_for() { # RATE
    if [ "$1" = $whole_grid_at ]; then echo 4 8 12 16; else echo 16; fi
}

rates='16000 32000 44100 48000'
if [ -n "${QUICK:-}" ]; then # sanitized programs start slowly
    rates=44100
    bitpools_for() { echo 19 64; }
fi

refusals=0
followed=0
for rate in $rates; do
    sox -D "$SPEECH" -r "$rate" -b 16 mono.wav trim 1 0.15
    sox -D mono.wav mono-reversed.wav reverse
    sox -D -M mono.wav mono-reversed.wav stereo.wav
    sox mono.wav mono.au
    sox stereo.wav stereo.au
    for mode in mono dual stereo joint; do
        case $mode in
            mono) input=mono sharing=16 flags='' ;;
            dual) input=stereo sharing=16 flags=-d ;;
            stereo) input=stereo sharing=32 flags='' ;;
            joint) input=stereo sharing=32 flags=-j ;;
        esac
        for subbands in 4 8; do
            for bitpool in $(bitpools_for $rate $sharing $subbands); do
                for blocks in $(blocks_for $rate); do
                    for allocation in loudness snr; do
                        what="$rate Hz $mode, $subbands subbands, bitpool $bitpool, $blocks blocks, $allocation"
                        snr=
                        [ $allocation = loudness ] || snr=-S
                        # shellcheck disable=SC2086
                        sbcenc -s $subbands -b "$bitpool" -B $blocks $flags $snr $input.au >theirs.sbc
                        "$ZAV" encode --mode $mode --subbands $subbands --bitpool "$bitpool" \
                            --blocks $blocks --allocation $allocation $input.wav ours.sbc
                        same ours.sbc theirs.sbc "$what"

                        # The decoder takes two channels for plain stereo. Other modes decode only if
                        # their frames have the same length.
                        if "$ZAV" decode ours.sbc ours.au 2>refusal.txt; then
                            sbcdec -f theirs.au theirs.sbc
                            cmp -s --ignore-initial=24 ours.au theirs.au ||
                                fail "decoded samples differ: $what"
                            case $mode in dual | joint) followed=$((followed + 1)) ;; esac
                        else
                            [ $mode = dual ] || [ $mode = joint ] || fail "not decoded: $what"
                            grep -q "^zav: ours.sbc: $mode frames of .* bytes, where plain stereo has .*; use mono or plain stereo (to convert: ffmpeg" \
                                refusal.txt || fail "$what: $(cat refusal.txt)"
                            refusals=$((refusals + 1))
                        fi
                    done
                done
            done
        done
    done
done
[ "$refusals" -gt 0 ] || fail "no joint or dual stream was refused"

[ "$followed" -gt 0 ] || fail "no joint or dual stream was decoded"

# Big-endian input gives the same frames as little-endian input.
sox mono.wav mono.aiff
"$ZAV" encode mono.wav little.sbc
"$ZAV" encode mono.aiff big.sbc
same little.sbc big.sbc "AIFF and WAV input"
# Every type of output holds the samples of sbcdec.
sbcdec -f theirs.au little.sbc
sox theirs.au -t s16 theirs.raw
for extension in wav rf64 w64 aiff aifc caf au; do
    "$ZAV" decode little.sbc "out.$extension"
    ffmpeg -nostdin -v error -i "out.$extension" -f s16le -y ours.raw
    same ours.raw theirs.raw "decoded to $extension"
done
done_with sbc
