# SPDX-License-Identifier: MIT
# shellcheck shell=sh
#
# Common code of scripts/demo and scripts/shell: puts the programs of a build
# directory on the PATH and starts zansim on examples/device.json, in scripts/sandbox.
#
# The argument of the calling script is the build directory. ZAN_EMULATOR is the
# command that runs programs built for another machine. ZAN_PATIENCE is the timeout of
# each wait in seconds.
#
# Sets project (the root of the sources), work (a directory that is removed at the
# end), zansim_pid, and trace (the file with zansim's trace).

caller=${0##*/}
build=${1-}

complain() {
    echo "$caller: $*" >&2
    exit 2
}

project=$(cd "$(dirname "$0")/.." && pwd)
[ -n "$build" ] || complain "usage: scripts/sandbox scripts/$caller BUILD-DIRECTORY"
[ -n "${ZAN_SANDBOX-}" ] ||
    complain "run it in a sandbox: scripts/sandbox scripts/$caller $build"
build=$(cd "$build" && pwd) || complain "not a directory: $build"

# Wraps the programs in scripts, so that their names work under an emulator too.
provide_programs() {
    mkdir "$work/bin"
    for program in sim/zansim tools/zanctl examples/first_module examples/watcher \
        examples/mesh_agent examples/questioner; do
        [ -x "$build/$program" ] || complain "$build/$program is missing: build it first"
        # shellcheck disable=SC2016 # for the script that is written here
        printf '#!/bin/sh\nexec %s "%s" "$@"\n' "${ZAN_EMULATOR-}" "$build/$program" \
            >"$work/bin/${program##*/}"
    done
    chmod +x "$work/bin"/*
    PATH=$work/bin:$PATH
    export PATH
}

# Runs a check every 50 ms until it holds.
wait_until() {
    attempts=$((${ZAN_PATIENCE:-30} * 20))
    until "$@" >/dev/null 2>&1; do
        attempts=$((attempts - 1))
        [ $attempts -gt 0 ] || return 1
        sleep 0.05
    done
}

has_ended() { ! kill -0 "$1" 2>/dev/null; }

start_zansim() {
    zansim --trace "$project/examples/device.json" >"$trace" 2>"$work/zansim.err" </dev/null &
    zansim_pid=$!
    wait_until grep -q '^zansim: ready' "$trace" || {
        cat "$trace" "$work/zansim.err" >&2
        return 1
    }
}

# The exit code is zansim's.
stop_zansim() {
    pid=$zansim_pid
    zansim_pid=
    kill "$pid"
    wait_until has_ended "$pid" || kill -KILL "$pid"
    wait "$pid"
}

clean_up() {
    if [ -n "$zansim_pid" ]; then
        stop_zansim || :
    fi
    rm -rf "$work"
}

zansim_pid=
work=$(mktemp -d "${TMPDIR:-/tmp}/zan-$caller.XXXXXX")
trace=$work/zansim.trace
trap clean_up EXIT
trap 'exit 129' HUP
trap 'exit 130' INT
trap 'exit 143' TERM
provide_programs
