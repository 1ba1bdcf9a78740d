#!/usr/bin/env bash
# Faults injected into the command-line host's writes: a full disk (a 1 MiB
# tmpfs, where root can mount one) and INT, TERM and HUP at several moments of
# a conversion and of its write.  Every run must end without a crash, without
# exit 0 after a failed or stopped write, and without a temporary file left.
#   scripts/faults.sh PALLION
set -uo pipefail
host=$1
work=$(mktemp -d)
mounted=""
cleanup() {
    [ -n "$mounted" ] && umount "$mounted" 2>/dev/null
    rm -rf "$work"
}
trap cleanup EXIT
passed=0 failed=0
ok() { passed=$((passed + 1)); }
bad() { failed=$((failed + 1)); echo "FAILED: $*"; }

# Tables of 3 columns: a small one, three whose output ends near 1 MiB (a full disk then strikes the last
# writes and the final flush and close), one that overfills it, one that takes about a second to convert.
/usr/bin/python3 - "$work" <<'EOF'
import random, sys
r = random.Random(5)
for name, rows in (("small", 2000), ("edge1", 42000), ("edge2", 43000), ("edge3", 43500), ("fill", 60000),
                   ("big", 1500000)):
    with open(f"{sys.argv[1]}/{name}.txt", "w") as f:
        f.writelines(f"{i} {r.random():.6f} {r.random():.6f}\n" for i in range(rows))
EOF

# No temporary file in a folder, and nothing under the final name after a failure.
leftovers() { find "$1" -maxdepth 1 -name '.*.tmp' | grep -q .; }

# A full disk: every output format, each size, small blocks for many HDF5 objects.
if [ "$(id -u)" -eq 0 ] && mkdir -p "$work/full" && mount -t tmpfs -o size=1m tmpfs "$work/full" 2>/dev/null; then
    mounted="$work/full"
    for table in small edge1 edge2 edge3 fill; do
        for out in out.ply out.h5 out.png; do
            for block in 10 50 100000; do
                rm -f "$mounted"/out.* "$mounted"/.out.*
                option=(-o "$mounted/$out")
                [ "$out" = out.png ] && option=(--preview "$mounted/$out")
                "$host" -q --block "$block" "$work/$table.txt" "${option[@]}" >/dev/null 2>"$work/err"
                status=$?
                what="disk full: $table.txt --block $block $out: status $status"
                if [ "$status" -ge 128 ]; then bad "$what (crash): $(cat "$work/err")"
                elif leftovers "$mounted"; then bad "$what: temporary file left"
                elif [ "$status" -eq 0 ] && [ ! -s "$mounted/$out" ]; then bad "$what: success without a file"
                elif [ "$status" -ne 0 ] && [ -e "$mounted/$out" ]; then bad "$what: a file after a failure"
                elif [ "$status" -ne 0 ] && ! grep -q "cannot write $mounted/$out" "$work/err"; then
                    bad "$what: the failure does not name the file: $(cat "$work/err")"
                else ok; fi
            done
        done
    done
    # The full disk is reached in both sizes: the large table fails, the small one is written.
    rm -f "$mounted"/out.*
    "$host" -q "$work/fill.txt" -o "$mounted/out.h5" >/dev/null 2>&1 && bad "disk full: 60000 rows fit in 1 MiB" || ok
else
    echo "skipped: the full-disk runs need root and a tmpfs mount"
fi

# Signals at several moments: while converting, and (for the later ones) while writing.
for signal in INT TERM HUP; do
    case $signal in INT) want=130 ;; TERM) want=143 ;; HUP) want=129 ;; esac
    for out in out.ply out.h5 out.png; do
        for delay in 0.05 0.4 0.9 1.4; do
            rm -f "$work"/out.* "$work"/.out.*
            option=(-o "$work/$out")
            [ "$out" = out.png ] && option=(--preview "$work/$out")
            "$host" -q "$work/big.txt" "${option[@]}" >/dev/null 2>"$work/err" &
            pid=$!
            sleep "$delay"
            kill -s "$signal" "$pid" 2>/dev/null
            wait "$pid"
            status=$?
            what="$signal after ${delay}s, $out: status $status"
            if leftovers "$work"; then bad "$what: temporary file left"
            elif [ "$status" -eq 0 ]; then
                # Finished before the signal came: then the file is whole.
                [ -s "$work/$out" ] && ok || bad "$what: success without a file"
            elif [ "$status" -ne "$want" ]; then bad "$what, not $want: $(cat "$work/err")"
            elif [ -e "$work/$out" ]; then bad "$what: an output after a stop"
            else ok; fi
        done
    done
done

echo "faults: $passed passed, $failed failed"
[ "$failed" -eq 0 ]
