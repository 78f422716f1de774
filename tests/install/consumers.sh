#!/usr/bin/env bash
# Installs the library into an empty folder and builds the README's program against it, by the
# README's own CMake file and its pkg-config command, shared and static.
#
#     consumers.sh BUILD_FOLDER SPEECH.wav
set -euo pipefail

build=$1
speech=$2
readme=$(cd "$(dirname "$0")/../.." && pwd)/README.md
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"

block() { # LANGUAGE: the first block of this language in the README
    sed -n "/^\`\`\`$1\$/,/^\`\`\`\$/{/^\`\`\`/d;p}" "$readme"
}

cmake --install "$build" --prefix "$work/prefix" >install.log
find prefix -path '*platform/linux*' | grep . && { echo 'private headers were installed'; exit 1; }
library=$(dirname "$(find prefix -name libZAVAudioStreaming.so)")
export LD_LIBRARY_PATH=$work/$library PKG_CONFIG_PATH=$work/$library/pkgconfig

block cpp >main.cpp
cp "$speech" speech.wav
expect_frames() { # COMMAND...: the program says that it sent all 1355 frames of the recording
    "$@" >output.txt
    [ "$(awk '{ frames += $1 } END { print frames }' output.txt)" = 1355 ] || {
        echo "FAILED: $*"
        cat output.txt
        exit 1
    }
}

block cmake >CMakeLists.txt
cmake -S . -B with-cmake -DCMAKE_PREFIX_PATH="$work/prefix" >cmake.log
cmake --build with-cmake >>cmake.log
expect_frames with-cmake/streamer

sed -i 's/ZAVAudioStreaming::ZAVAudioStreaming/ZAVAudioStreaming::static/' CMakeLists.txt
cmake -S . -B with-static -DCMAKE_PREFIX_PATH="$work/prefix" >>cmake.log
cmake --build with-static >>cmake.log
ldd with-static/streamer | grep ZAVAudioStreaming && { echo 'linked to the shared library'; exit 1; }
expect_frames with-static/streamer

bash -euc "$(block sh | grep pkg-config)"
expect_frames ./streamer
# Statically: the archive by its name, the libraries behind it by pkg-config.
read -ra compile_flags < <(pkg-config --cflags ZAVAudioStreaming)
read -ra link_flags < <(pkg-config --libs sbc sndfile)
g++ -std=c++20 "${compile_flags[@]}" main.cpp -o streamer-static "$library/libZAVAudioStreaming.a" \
    "${link_flags[@]}"
expect_frames ./streamer-static

# The installed tool finds the library beside it.
env -u LD_LIBRARY_PATH prefix/bin/zav --version

# Nothing that was installed names the folder that it was built in.
if grep -rl --binary-files=text "$(dirname "$readme")" prefix; then
    echo 'FAILED: these name the build folder'
    exit 1
fi
echo 'consumers: by CMake and pkg-config, shared and static'
