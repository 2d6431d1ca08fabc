#!/usr/bin/env bash
# Runs the filter on the sample queue as the mail server would: one request per line on its
# standard input, answers and log comments on its standard output.
set -eu
program=$(cd "$(dirname "$1")" && pwd)/$(basename "$1")
cd "$(dirname "$0")"
echo "== requests (examples/requests.txt), as the server sends them"
sed 's/^/   /' requests.txt
echo
echo "== the filter's answers"
"$program" < requests.txt | sed 's/^/   /'
