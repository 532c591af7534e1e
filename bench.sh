#!/bin/bash
# bench.sh [quick] - measures what every operation and command costs, and writes it into docs/performance.md
#
# For a fresh Debian 12 machine, as root, with nothing else to do and 8 GiB of memory: from a thousand to a
# million accounts, in some 25 minutes. "quick" measures a part in two minutes, and prints it only. All
# measuring is done in private worlds (scripts/private-world); the raw results stay in build/bench.
set -eu
cd "$(dirname "$(readlink -f "$0")")"
mode=${1:-full}
case $mode in
    full | quick) ;;
    *) echo "usage: bench.sh [quick]" >&2; exit 64 ;;
esac

[ "$(id -u)" -eq 0 ] || { echo "bench.sh: must run as root (try sudo)" >&2; exit 1; }
scripts/install-dependencies build servers bench
cmake --preset release > /dev/null
cmake --build --preset release --target bench_operations qvmailctl

results=build/bench
mkdir -p $results
for backend in files mysql; do
    scripts/private-world bench/measure.py $backend build/release $results/$backend-"$mode".json "$mode"
done
if [ "$mode" = full ]; then
    bench/report.py $results/files-full.json $results/mysql-full.json --into docs
else
    bench/report.py $results/files-quick.json $results/mysql-quick.json
fi
