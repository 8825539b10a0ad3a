#!/usr/bin/env bash
# Builds the fuzz targets (the fuzz preset, in build/fuzz or HF_FUZZ_BUILD_DIR)
# and runs each in turn for a number of seconds, niced, from its seeds in
# fuzz/corpus/<target>/ and the corpus that earlier runs grew in
# build/fuzz/corpus/<target>/.
#
#   fuzz/run.sh [seconds per target, default 30] [target ...]
#
# Targets: change_records, settings, control_pipe (all by default). Each run
# ends with a line of its figures: time, executions, executions per second,
# coverage (edges), features and corpus size; its log is kept in
# build/fuzz/logs/<target>.log. An input that breaks a rule or crashes stops
# its target and is kept as build/fuzz/findings/<target>/crash-*; the script
# then exits 1.
set -uo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-30}
shift $(($# > 0 ? 1 : 0))
targets=("$@")
if [[ ${#targets[@]} -eq 0 ]]; then
    targets=(change_records settings control_pipe)
fi
build=${HF_FUZZ_BUILD_DIR:-build/fuzz}

cmake --preset fuzz -B "$build" >/dev/null && cmake --build "$build" -j2 || exit 1

# Room for several change records, a long Desktop.ini, a long conversation.
declare -A max_len=([change_records]=16384 [settings]=4096 [control_pipe]=2048)

status=0
for target in "${targets[@]}"; do
    corpus=$build/corpus/$target
    findings=$build/findings/$target
    log=$build/logs/$target.log
    mkdir -p "$corpus" "$findings" "$(dirname "$log")"
    nice -n 19 "$build/fuzz/fuzz_$target" -max_total_time="$seconds" -max_len="${max_len[$target]:-4096}" \
        -timeout=30 -print_final_stats=1 -artifact_prefix="$findings/" "$corpus" "fuzz/corpus/$target" >"$log" 2>&1
    result=$?
    last=$(grep -E '^#[0-9]+' "$log" | tail -1)
    stat() { sed -n "s/^stat::$1: *//p" "$log"; }
    cov=$(sed -n 's/.* cov: \([0-9]*\).*/\1/p' <<<"$last")
    ft=$(sed -n 's/.* ft: \([0-9]*\).*/\1/p' <<<"$last")
    corp=$(sed -n 's/.* corp: \([0-9]*\/[0-9a-zA-Z]*\).*/\1/p' <<<"$last")
    echo "fuzz: $target: ${seconds} s, $(stat number_of_executed_units) executions," \
        "$(stat average_exec_per_sec) exec/s, cov $cov, ft $ft, corpus $corp"
    if [[ $result -ne 0 ]]; then
        echo "fuzz: $target: FINDING (exit $result), see $log and $findings/"
        grep -E -A3 'rule broken|ERROR:' "$log" | head -20
        status=1
    fi
done
exit $status
