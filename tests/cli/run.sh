#!/bin/sh
# Runs a shell test, `run.sh SCRIPT FOLDER`, in an empty folder, with the checks below at hand.
set -eu
script=$1
rm -rf "$2"
mkdir -p "$2"
cd "$2"

fail() {
  echo "FAILED: $*" >&2
  for file in out err; do [ ! -s $file ] || { echo "--- $file"; head -c 4000 $file; } >&2; done
  exit 1
}

# expect CODE COMMAND...: runs the command with its output in the files `out` and `err`; its exit code must be CODE.
expect() {
  wanted=$1
  shift
  code=0
  "$@" >out 2>err </dev/null || code=$?
  [ "$code" = "$wanted" ] || fail "exit code $code instead of $wanted: $*"
}

# shows TEXT: the last command's messages contain the text.
shows() { grep -qF -e "$1" err || fail "no \"$1\" among the messages"; }
# prints TEXT: the last command's output contains the text.
prints() { grep -qF -e "$1" out || fail "no \"$1\" in the output"; }

# shellcheck disable=SC1090
. "$script"
