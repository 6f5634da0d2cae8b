#!/bin/sh
# Whole-process time of `mervasto-cli analyze` on a 5,000,000-row x
# 4-channel capture: the load, the analysis, the output and the exit, as a
# user meets them. Generates the file once (own layout, 256 MB, and with
# LAYOUT=generic the same record as "Time(s),CH1(V),..."), runs the command
# RUNS times and prints every time and the median.
#
#   cmake --preset release && cmake --build --preset release --target mervasto-cli
#   bench/analyze-process.sh                 # own layout
#   LAYOUT=generic bench/analyze-process.sh  # the same record imported
set -eu

CLI=${CLI:-build/release/src/cli/mervasto-cli}
RUNS=${RUNS:-5}
ROWS=${ROWS:-5000000}
DIR=${BENCH_DIR:-${TMPDIR:-/tmp}/mervasto-analyze-bench}
LAYOUT=${LAYOUT:-own}

[ -x "$CLI" ] || { echo "build $CLI first (release preset)" >&2; exit 2; }
mkdir -p "$DIR"
OWN="$DIR/own-$ROWS.csv"
GENERIC="$DIR/generic-$ROWS.csv"

if [ ! -s "$OWN" ]; then
    echo "writing $OWN" >&2
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
    }' > "$OWN.tmp"
    mv "$OWN.tmp" "$OWN"
fi
FILE=$OWN
if [ "$LAYOUT" = generic ]; then
    [ -s "$GENERIC" ] || "$CLI" --data-folder "$DIR/data" convert --generic "$OWN" "$GENERIC" >&2
    FILE=$GENERIC
fi

times=""
i=0
while [ "$i" -lt "$RUNS" ]; do
    start=$(date +%s.%N)
    "$CLI" --data-folder "$DIR/data" analyze --no-save --format csv "$FILE" > /dev/null
    end=$(date +%s.%N)
    t=$(echo "$start $end" | awk '{ printf "%.3f", $2 - $1 }')
    echo "run $((i + 1)): $t s" >&2
    times="$times $t"
    i=$((i + 1))
done
echo "$times" | tr ' ' '\n' | grep . | sort -n |
    awk -v layout="$LAYOUT" -v rows="$ROWS" '{ a[NR] = $1 } END {
        m = NR % 2 ? a[(NR + 1) / 2] : (a[NR / 2] + a[NR / 2 + 1]) / 2
        printf "analyze %s layout, %d rows x 4: median %.3f s of %d runs\n", layout, rows, m, NR }'
