# shellcheck shell=bash disable=SC2034,SC2154
# Sourced by the scripts here that run whole programs and compare their costs. Expects the path of
# zav_measure_run in `measure_run`. Files are made in `folder`.
set -euo pipefail
export LC_ALL=C

repository=$(cd -- "$(dirname -- "${BASH_SOURCE[0]}")/.." && pwd)
readonly repository

fail() {
    printf '%s: %s\n' "${0##*/}" "$1" >&2
    exit 2
}

# require_number OPTION VALUE
require_number() {
    [[ ${2-} =~ ^[1-9][0-9]*$ ]] || fail "$1 '${2-}': a number from 1 on; see --help"
}

# require_tool COMMAND DEBIAN_PACKAGE
require_tool() {
    command -v -- "$1" >/dev/null || fail "$1 is missing: apt-get install $2"
}

require_program() { # FILE
    [[ -x $1 ]] ||
        fail "$1 is missing: $repository/scripts/build release -DZAV_BUILD_BENCHMARKS=ON"
}

# Makes the folder for the files. The folder is removed at the end.
make_folder() {
    folder=$(mktemp -d -t "zav-${0##*/}.XXXXXX")
    readonly folder
    trap 'rm -rf -- "$folder"' EXIT
}

# run NAME OUTPUT_FILE STANDARD_OUTPUT COMMAND...
# Measures one run and adds its figures as a line to NAME.runs. First removes OUTPUT_FILE, because
# the tool must not spend time on the old file. `limit` can contain a command that ends the run.
limit=()
run() {
    local name=$1 output_file=$2 standard_output=$3
    shift 3
    rm -f -- "$output_file"
    "${limit[@]}" "$measure_run" "$folder/$name.runs" "$standard_output" "$@" || fail "$name did not work"
}

# in_turn ROUNDS RUN...
# Every second round runs in reverse order. So no run always follows the same run.
in_turn() {
    local round step count=$1
    shift
    for ((round = 0; round < count; ++round)); do
        for ((step = 1; step <= $#; ++step)); do
            if ((round % 2 == 0)); then
                "${!step}"
            else
                local mirrored=$(($# + 1 - step))
                "${!mirrored}"
            fi
        done
    done
}

median() {
    sort -g | awk '{ value[NR] = $1 }
                   END { print (value[int((NR + 1) / 2)] + value[int((NR + 2) / 2)]) / 2 }'
}

# Columns of the runs' figures.
readonly processor_time=1 wall_time=2 peak_memory=3 wake_up_count=4

# median_of COLUMN NAME
median_of() {
    awk -v column="$1" '{ print $column }' "$folder/$2.runs" | median
}

# median_ratio COLUMN NAME OTHER_NAME: the median of the ratios in each round
median_ratio() {
    paste -d ' ' "$folder/$2.runs" "$folder/$3.runs" |
        awk -v column="$1" '{ print $column / $(column + NF / 2) }' | median
}

in_seconds() { awk -v us="$1" 'BEGIN { printf "%.3f s", us / 1e6 }'; }
in_milliseconds() { awk -v us="$1" 'BEGIN { printf "%.2f ms", us / 1e3 }'; }
in_megabytes() { awk -v kib="$1" 'BEGIN { printf "%.1f MB", kib * 1024 / 1e6 }'; }

# print_row CELL...
print_row() {
    local name=$1
    shift
    printf '%-22s' "$name"
    printf '%18s' "$@"
    printf '\n'
}
