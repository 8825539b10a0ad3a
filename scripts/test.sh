#!/usr/bin/env bash
# Builds and tests everything on a Debian 12 machine: the native build (the
# core on the simulated Windows, under the sanitizers), a short run of the fuzz
# targets, and the windows build (TarnwickHotFolder.exe and its suites, run
# under Wine). Exits non-zero if any step or any test fails; ends with the
# counts of both test runs.
#
# Build folders: build/native, build/fuzz and build/windows (the CMake
# presets), or HF_NATIVE_BUILD_DIR, HF_FUZZ_BUILD_DIR and HF_WINDOWS_BUILD_DIR
# when set.
set -uo pipefail
cd "$(dirname "$0")/.."
started=$SECONDS
native_dir=${HF_NATIVE_BUILD_DIR:-build/native}
windows_dir=${HF_WINDOWS_BUILD_DIR:-build/windows}
winetest=tests/wine/e2e/winetest.py
status=0

step() {
    echo
    echo "== $* ($((SECONDS - started)) s)"
}

# Runs ctest, keeps its output in a log and its counts for the final summary.
run_ctest() {
    local name=$1 dir=$2
    local log="$dir/ctest-summary.log"
    ctest --test-dir "$dir" -j2 --output-on-failure 2>&1 | tee "$log"
    local result=${PIPESTATUS[0]}
    if [[ $result -ne 0 ]]; then
        status=1
    fi
    local total failed skipped
    total=$(sed -n 's/.*tests failed out of \([0-9]*\).*/\1/p' "$log" | tail -1)
    failed=$(sed -n 's/.*, \([0-9]*\) tests failed out of.*/\1/p' "$log" | tail -1)
    skipped=$(grep -c '(Skipped)$' "$log" || true)
    if [[ -z $total ]]; then
        echo "test.sh: $name: ctest ran no tests"
        status=1
        return
    fi
    summary_lines+=("$name: $((total - failed - skipped)) passed, $failed failed, $skipped skipped")
    all_passed=$((all_passed + total - failed - skipped))
    all_failed=$((all_failed + failed))
    all_skipped=$((all_skipped + skipped))
}

summary_lines=()
all_passed=0
all_failed=0
all_skipped=0

step "setup"
bash scripts/setup.sh || exit 1

step "native: configure and build"
if cmake --preset native -B "$native_dir" && cmake --build "$native_dir" -j2; then
    step "native: test"
    run_ctest native "$native_dir"
else
    echo "test.sh: the native build failed"
    status=1
fi

# A short run of each fuzz target: its seeds (the inputs that once broke a rule
# among them) and 10 s of new inputs. Long runs are made by hand (README).
step "fuzz: build and run each target for 10 s"
if bash fuzz/run.sh 10; then
    summary_lines+=("fuzz: 3 targets, 10 s each, no finding")
else
    summary_lines+=("fuzz: FAILED, see build/fuzz/logs and build/fuzz/findings")
    status=1
fi

step "windows: configure and build"
if cmake --preset windows -B "$windows_dir" && cmake --build "$windows_dir" -j2; then
    # The Wine server and the suites' prefix are made here, outside ctest's
    # output pipes: services that Wine starts inside a test would hold them
    # open and ctest would wait for ever.
    step "windows: Wine template prefix and server"
    python3 "$winetest" template "$windows_dir/wine/template" &&
        python3 "$winetest" ready "$windows_dir/wine/suites" --template "$windows_dir/wine/template" || status=1
    step "windows: test under Wine"
    run_ctest windows "$windows_dir"
    python3 "$winetest" stop "$windows_dir/wine/suites" "$windows_dir"/wine/e2e/*/* 2>/dev/null
else
    echo "test.sh: the windows build failed"
    status=1
fi

step "done"
for line in "${summary_lines[@]}"; do
    echo "test.sh: $line"
done
echo "test.sh: finished in $((SECONDS - started)) s, exit status $status"
echo "$all_passed passed, $all_failed failed, $all_skipped skipped"
exit $status
