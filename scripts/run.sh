#!/usr/bin/env bash
# Sets everything up and shows the default simulated host: its adapters,
# ports, targets and LUNs.
set -euo pipefail
cd "$(dirname "$0")/.."
./scripts/setup.sh
exec build/bin/vtsdm-sim show "$@"
