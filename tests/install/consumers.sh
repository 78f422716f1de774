#!/usr/bin/env bash
# Installs the library by the README's commands into an empty folder, and builds the README's program
# against it, by the README's own CMake file and its pkg-config command, shared and static. The release
# is configured, but what is installed is the build under test: a second one would take minutes.
#
#     consumers.sh SPEECH.wav BUILD_FOLDER
set -euo pipefail

speech=$1
build=$2
root=$(cd "$(dirname "$0")/../.." && pwd)
readme=$root/README.md
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"

block() { # LANGUAGE [NUMBER]: the first (or NUMBER-th) block of this language in the README
    awk -v start="\`\`\`$1" -v wanted="${2:-1}" '$0 == start { inside = ++count == wanted; next }
        /^```/ { inside = 0 } inside' "$readme"
}

# The block that installs, as it stands, but for the build and the place and rights that it takes.
commands=$(awk '/^```sh$/ { inside = 1; text = ""; next }
    /^```$/ { if (text ~ /--install/) print text; inside = 0 }
    inside { text = text $0 "\n" }' "$readme" |
    sed -e 's/^sudo //' -e '/^ldconfig/d' -e '/^cmake --build /d' \
        -e "s|^cmake --preset.*|& -B $work/release|" -e "s|build/release|$build|")
[ -n "$commands" ] || { echo 'FAILED: the README has no commands that install'; exit 1; }
(cd "$root" && bash -euc "${commands//\/usr\/local/$work/prefix}") >install.log 2>&1 || {
    cat install.log
    exit 1
}
find prefix/include | grep -E '/(support|files|queues|posix|modules)(/|$)' && { echo 'private headers were installed'; exit 1; }
library=$(dirname "$(find prefix -name libZAVAudioStreaming.so)")
export LD_LIBRARY_PATH=$work/$library PKG_CONFIG_PATH=$work/$library/pkgconfig

block cpp >main.cpp
cp "$speech" speech.wav
expect_frames() { # COMMAND...: the program prints that it sent all 1355 frames of the recording
    "$@" >output.txt
    [ "$(awk '{ frames += $1 } END { print frames }' output.txt)" = 1355 ] || {
        echo "FAILED: $*"
        cat output.txt
        exit 1
    }
}

block cmake >CMakeLists.txt
# The same program once more, static.
cat >>CMakeLists.txt <<'END'
add_executable(static-streamer main.cpp)
target_link_libraries(static-streamer PRIVATE ZAVAudioStreaming::static)
END
cmake -S . -B with-cmake -DCMAKE_PREFIX_PATH="$work/prefix" >cmake.log
cmake --build with-cmake >>cmake.log
expect_frames with-cmake/streamer
ldd with-cmake/static-streamer | grep ZAVAudioStreaming && { echo 'linked to the shared library'; exit 1; }
expect_frames with-cmake/static-streamer

bash -euc "$(grep 'pkg-config --cflags --libs' "$readme")"
expect_frames ./streamer
# The README's other pieces of code compile inside functions that declare what they use.
cat >piece.cpp <<END
#include <ZAVAudioStreaming/ZAVAudioStreaming.hpp>
#include <future>
#include <iostream>
using Accessory = zav::PeripheralSink;
void push(const void* bytes, std::uint64_t size) {
$(block cpp 2)
}
void record() {
$(block cpp 3)
}
void play(const std::shared_ptr<zav::PeripheralSource>& received) {
$(block cpp 4)
}
void read() {
$(block cpp 5)
}
END
g++ -std=c++20 -fsyntax-only -Iprefix/include piece.cpp

# Statically: the archive by its name, the libraries that it needs by pkg-config.
read -ra compile_flags < <(pkg-config --cflags ZAVAudioStreaming)
read -ra link_flags < <(pkg-config --libs sbc sndfile)
g++ with-cmake/CMakeFiles/static-streamer.dir/main.cpp.o -o streamer-static \
    "$library/libZAVAudioStreaming.a" "${link_flags[@]}"
expect_frames ./streamer-static

# The version, under the names that other languages and tools look for.
grep -aqF '@(#)PROGRAM:ZAVAudioStreaming  PROJECT:ZAVAudioStreaming-1' "$library/libZAVAudioStreaming.so" &&
    [ "$(nm -D "$library/libZAVAudioStreaming.so" | grep -cE ' ZAVAudioStreamingVersion(String|Number)$')" = 2 ] ||
    { echo 'FAILED: the version' && exit 1; }

# A program that links the library does not load a media framework.
ldd "$library/libZAVAudioStreaming.so" | grep -E 'libav|libgst|libpulse' && {
    echo 'FAILED: loaded with the library'
    exit 1
}

# A program with either library finds the installed module, and runs without it.
cat >types.cpp <<'END'
#include <ZAVAudioStreaming/platform/AudioFile.hpp>
int main(int, char** arguments) {
    std::uint32_t size = 0;
    const auto status = zav::AudioFileGetGlobalInfoSize(zav::kAudioFileGlobalInfo_ReadableTypes, 0,
                                                        nullptr, &size);
    const bool hasModule = size > 8 * sizeof(zav::AudioFileTypeID);
    return status == 0 && hasModule == (*arguments[1] == 'y') ? 0 : 1;
}
END
g++ -std=c++20 "${compile_flags[@]}" -c types.cpp
g++ types.o -o types -L"$library" -lZAVAudioStreaming
g++ types.o -o types-static "$library/libZAVAudioStreaming.a" "${link_flags[@]}"
./types y
./types-static y
cp "$library/libZAVAudioStreamingFFmpeg.so" .
mv "$library/libZAVAudioStreamingFFmpeg.so" away.so
(mkdir -p elsewhere && cd elsewhere && cp ../types-static . && ./types-static n)
./types n
mv away.so "$library/libZAVAudioStreamingFFmpeg.so"
rm libZAVAudioStreamingFFmpeg.so

# The installed tool finds the library beside it.
env -u LD_LIBRARY_PATH prefix/bin/zav --version

# No installed file names the build folder.
if grep -rl --binary-files=text "$root" prefix; then
    echo 'FAILED: these name the build folder'
    exit 1
fi
echo 'consumers: by CMake and pkg-config, shared and static'
