#!/bin/sh
# Shows what a policy does to messages, without a server. Called with the path of the built program.
set -eu

if [ $# -ne 1 ] || [ ! -x "$1" ]; then
  echo "usage: $0 PATH-OF-KAVI" >&2
  exit 2
fi
kavi=$(realpath "$1")
cd "$(dirname "$0")/.."
result=$(mktemp -d)
trap 'rm -rf "$result"' EXIT INT TERM

if [ -t 1 ]; then bold=$(printf '\033[1m') plain=$(printf '\033[0m'); else bold= plain=; fi
heading() {
  printf '\n%s== %s ==%s\n\n' "$bold" "$1" "$plain"
}

heading "The policy (examples/policy.yaml)"
grep -v '^#' examples/policy.yaml
printf '\n'
"$kavi" policy check examples/policy.yaml

heading "What it does to the messages of examples/mail (kavi run --policy examples/policy.yaml --out DIR --diff examples/mail)"
"$kavi" run --policy examples/policy.yaml --out "$result" --diff examples/mail

heading "What is in DIR now"
(cd "$result" && find . -type f ! -name '.*' | LC_ALL=C sort | sed 's|^\./|  |')

heading "The bytes of one message before and after (japanese.eml)"
diff -U1 --label before --label after examples/mail/japanese.eml "$result/japanese.eml" || true
printf '\nEvery other byte of it is as it came. Nothing was sent.\n'
