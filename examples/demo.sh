#!/bin/sh
# Shows the gateway at work; where its servers cannot be run, what its policy does without them.
# Usage: examples/demo.sh BIN_DIR
#
# Exit status: 0 when all was seen that it said it would show, with or without servers.
set -eu

if [ $# -ne 1 ] || [ ! -x "$1/kavi" ] || [ ! -x "$1/kavi-milter" ]; then
  echo "usage: $0 FOLDER-OF-THE-BUILT-PROGRAMS" >&2
  exit 2
fi
bin=$(realpath "$1")
cd "$(dirname "$0")/.."
PATH=$PATH:/usr/sbin:/sbin  # servers are not on everybody's path

missing=
for program in python3 diff postfix swaks snmptrapd; do
  command -v "$program" >/dev/null 2>&1 || missing="$missing $program"
done
if [ -z "$missing" ]; then
  if [ "$(id -u)" = 0 ]; then
    exec python3 -B examples/demo.py "$bin"
  fi
  if sudo -n true 2>/dev/null; then
    echo "Postfix can be started by root only: going on with sudo."
    exec sudo env "PATH=$PATH" python3 -B examples/demo.py "$bin"
  fi
fi

examples/rehearsal.sh "$bin/kavi"
echo
echo "This was a part only: the policy, tried out by kavi run. Left out were a Postfix with kavi-milter"
echo "and messages sent through them, quarantine on disk, a notification and a trap that arrive, since"
if [ -n "$missing" ]; then
  echo "  - these programs are missing:$missing"
  echo "    (packages: see [demo] in packages.txt; \`sudo make demo\` installs them)"
fi
if [ "$(id -u)" != 0 ]; then
  echo "  - Postfix can be started by root only: \`sudo make demo\`"
fi
