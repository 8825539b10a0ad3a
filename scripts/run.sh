#!/usr/bin/env bash
# Shows TarnwickHotFolder.exe at work under Wine on a Debian 12 machine:
# installs what is needed, builds the windows build, makes a fresh Wine prefix
# under build/run and runs the product's roles there, printing every event it
# reports as the event log viewer would show it. See scripts/run_demo.py for
# the steps.
set -euo pipefail
cd "$(dirname "$0")/.."
windows_dir=${HF_WINDOWS_BUILD_DIR:-build/windows}

bash scripts/setup.sh
cmake --preset windows -B "$windows_dir" >/dev/null
cmake --build "$windows_dir" -j2 --target TarnwickHotFolder hf_launch TestPlugIn HotFolderControl
python3 scripts/run_demo.py --build "$windows_dir" --prefix build/run/prefix
