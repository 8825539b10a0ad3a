#!/bin/sh
# Runs a Windows program of the build under Wine, in the prefix that the
# GoogleTest suites share: CTest's emulator for the suites, for listing their
# tests as well as for running them.
#
# The prefix must be booted, by a persistent Wine server, before a suite runs:
# otherwise Wine boots it from inside the suite, and the services it starts
# inherit the suite's output pipe, which CTest then waits on for ever.
# `winetest.py ready` does that, detached from our output; once the server
# runs it only checks.
#
# Usage: run-in-prefix.sh PREFIX TEMPLATE [NAME=VALUE...] PROGRAM [ARGUMENTS...]
# (the NAME=VALUE settings go into the program's environment).
set -e
prefix=$1
template=$2
shift 2
while [ $# -gt 0 ]; do
    case $1 in
    *=*) export "$1" ;;
    *) break ;;
    esac
    shift
done
python3 "$(dirname "$0")/e2e/winetest.py" ready "$prefix" --template "$template"
unset DISPLAY WAYLAND_DISPLAY
export WINEPREFIX="$prefix" WINEDEBUG="${HF_WINEDEBUG:--all}" WINEDLLOVERRIDES="mscoree,mshtml=" LC_ALL=C.UTF-8
exec wine "$@"
