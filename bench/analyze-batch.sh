#!/bin/sh
# Whole-process time of `mervasto-cli analyze` on a batch of files: FILES
# captures of ROWS rows x 4 channels (default 100 of 100,000), with --jobs 1
# and with --jobs 2, run alternately RUNS times so that a busy machine slows
# both alike. Prints every time, the medians and the ratio jobs 2 / jobs 1.
# Several programs may be compared in the same rounds (say, before and after
# a change): CLI="old/mervasto-cli new/mervasto-cli".
#
#   cmake --preset release && cmake --build --preset release --target mervasto-cli
#   bench/analyze-batch.sh
#   FILES=20 RUNS=3 bench/analyze-batch.sh
set -eu

CLI=${CLI:-build/release/src/cli/mervasto-cli}
RUNS=${RUNS:-5}
ROWS=${ROWS:-100000}
FILES=${FILES:-100}
DIR=${BENCH_DIR:-${TMPDIR:-/tmp}/mervasto-batch-bench}

for c in $CLI; do [ -x "$c" ] || { echo "build $c first (release preset)" >&2; exit 2; }; done
mkdir -p "$DIR/files"
ONE="$DIR/one-$ROWS.csv"

if [ ! -s "$ONE" ]; then
    echo "writing $ONE" >&2
    # Four channels of pulses with some ripple, in the program's own layout.
    awk -v rows="$ROWS" 'BEGIN {
        printf "ModelName,DS-5354\r\nFileVersion,1\r\nAcquisition Time, 2026/01/01 00:00:00\r\n"
        printf "Time/div(second), %g \r\nDelay (second), 0 \r\nDelta (second), 2E-09 \r\n", rows * 2e-9 / 10
        printf "Acquisition Mode,NORMAL\r\nTrigger Address, %d \r\n", rows / 2
        for (i = 1; i <= 4; i++) printf "CH%d Display,ON\r\n", i
        for (i = 1; i <= 4; i++) printf "CH%d Volt/div, 1 \r\n", i
        for (i = 1; i <= 4; i++) printf "CH%d Offset, 0 \r\n", i
        for (i = 1; i <= 4; i++) printf "CH%d Coupling,DC\r\n", i
        for (i = 1; i <= 4; i++) printf "CH%d Bandwidth,OFF\r\n", i
        printf "Points , %d \r\nCh1 V,Ch2 V,Ch3 V,Ch4 V\r\n", rows
        for (k = 0; k < rows; k++) {
            line = ""
            for (c = 1; c <= 4; c++) {
                p = 100 * c + 37
                v = (k % p < p / 3 ? 2.5 : -.5) + (k % 7 == 0 ? .00390625 : 0)
                line = line (c > 1 ? "," : "") sprintf(" %.7g ", v)
            }
            printf "%s\r\n", line
        }
    }' > "$ONE.tmp"
    mv "$ONE.tmp" "$ONE"
fi
# The batch: links to the one file under names of their own.
rm -f "$DIR/files/"*.csv
i=0
while [ "$i" -lt "$FILES" ]; do
    ln "$ONE" "$DIR/files/capture-$(printf %03d "$i").csv"
    i=$((i + 1))
done

run() {  # cli jobs: prints the seconds taken
    start=$(date +%s.%N)
    "$1" --data-folder "$DIR/data" analyze --no-save --format csv --jobs "$2" "$DIR/files/"*.csv > /dev/null
    end=$(date +%s.%N)
    echo "$start $end" | awk '{ printf "%.3f", $2 - $1 }'
}

median() { tr ' ' '\n' | grep . | sort -n | awk '{ a[NR] = $1 } END {
    printf "%.3f", NR % 2 ? a[(NR + 1) / 2] : (a[NR / 2] + a[NR / 2 + 1]) / 2 }'; }

TIMES="$DIR/times"
rm -f "$TIMES"
r=0
while [ "$r" -lt "$RUNS" ]; do
    n=0
    for c in $CLI; do
        for jobs in 1 2; do
            t=$(run "$c" "$jobs")
            echo "run $((r + 1)), $c, --jobs $jobs: $t s" >&2
            echo "$n $jobs $t" >> "$TIMES"
        done
        n=$((n + 1))
    done
    r=$((r + 1))
done

n=0
for c in $CLI; do
    one=$(awk -v n="$n" '$1 == n && $2 == 1 { printf " %s", $3 }' "$TIMES" | median)
    two=$(awk -v n="$n" '$1 == n && $2 == 2 { printf " %s", $3 }' "$TIMES" | median)
    echo "$one $two" | awk -v cli="$c" -v files="$FILES" -v rows="$ROWS" -v runs="$RUNS" '{
        printf "%s: %d files of %d rows x 4, median of %d runs: --jobs 1 %.3f s, --jobs 2 %.3f s, ratio %.2f\n",
            cli, files, rows, runs, $1, $2, $2 / $1 }'
    n=$((n + 1))
done
