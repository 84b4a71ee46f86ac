#!/usr/bin/env bash
# The main job: installs what is missing, builds, and runs the demo program.
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
"$top/scripts/install-deps.sh"
"$top/scripts/build.sh" "$top/build/release" -DZMU_BUILD_TESTS=OFF -DZMU_BUILD_BENCH=OFF
"$top/build/release/examples/zmu_demo" "$@"
