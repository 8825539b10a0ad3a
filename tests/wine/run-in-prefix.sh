#!/bin/sh
# CTest's emulator for the GoogleTest suites: runs a Windows program of the
# build in the suites' shared prefix, which `winetest.py ready` first boots by a
# persistent server detached from our output (services booted from inside a
# suite would hold its output pipe, which CTest then waits on for ever).
#
# Usage: run-in-prefix.sh PREFIX TEMPLATE [NAME=VALUE...] PROGRAM [ARGUMENTS...]
set -e
prefix=$1
template=$2
shift 2
while [ $# -gt 0 ] && case $1 in *=*) true ;; *) false ;; esac do
    export "$1"
    shift
done
python3 "$(dirname "$0")/e2e/winetest.py" ready "$prefix" --template "$template"
unset DISPLAY WAYLAND_DISPLAY
export WINEPREFIX="$prefix" WINEDEBUG="${HF_WINEDEBUG:--all}" WINEDLLOVERRIDES="mscoree,mshtml=" LC_ALL=C.UTF-8
exec wine "$@"
