#!/usr/bin/env bash
# Sets everything up and shows the default simulated host: its adapters,
# ports, targets and LUNs.
set -euo pipefail
cd "$(dirname "$0")/.."
./scripts/setup.sh --product
# With no arguments: the summary, then the targets and LUNs of every port.
if [[ $# -eq 0 ]]; then
  build/bin/tarncli -z && echo && build/bin/tarncli -l all
  exit $?
fi
exec build/bin/tarncli "$@"
