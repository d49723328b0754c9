#!/usr/bin/env bash
# The layout's three rules (docs/architecture.md), each a search that must find nothing:
# the route is chosen at the door, and the two wings never reach into each other or the frame.
set -uo pipefail
cd "$(dirname "$0")/.."

found=0
rule() {
  local what=$1 hits=$2
  if [ -n "$hits" ]; then
    echo "house rule broken: $what"
    printf '%s\n' "$hits" | sed 's/^/    /'
    found=1
  fi
}

rule "a vendor-module lookup outside src/exports/ and src/vendor/" \
  "$(grep -rn 'vendor_module(' src | grep -v -e '^src/exports/' -e '^src/vendor/')"
rule "src/token/ or src/skf/ including src/vendor/" "$(grep -rn '#include "vendor/' src/token src/skf)"
rule "src/vendor/ or src/skf/ including src/token/" "$(grep -rn '#include "token/' src/vendor src/skf)"
rule "the export frame included outside src/exports/" \
  "$(grep -rn '#include "exports/frame.h"' src | grep -v '^src/exports/')"

[ $found -eq 0 ] && echo "house rules: none broken"
exit $found
