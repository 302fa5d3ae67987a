#!/usr/bin/env bash
# The Python package, and the example that uses it, under pytest.
#
#   python.sh package|example BUILD_DIRECTORY      77 says that there is no pytest
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/../.."
for python in python3 /usr/bin/python3 ''; do
  [ -n "$python" ] || { echo "skipped: there is no python3 with pytest"; exit 77; }
  ! "$python" -c 'import pytest' 2>/dev/null || break
done
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
unset XR_RUNTIME_JSON XR_API_LAYER_PATH
export PYTHONDONTWRITEBYTECODE=1 VELMOOR_SIM_EYE_SIZE=256x256
# As pip would pack and install it.
(cd python/velmoor && "$python" -c 'import sys, wheel_backend; wheel_backend.build_wheel(sys.argv[1])' "$scratch")
"$python" -m zipfile -e "$scratch"/velmoor-*.whl "$scratch/lib"
export PYTHONPATH=$scratch/lib
export PYTEST_ADDOPTS=--xr-start-limit=120
export VELMOOR=$2/bin/velmoor DEMO=$2/bin/velmoor_demo
[ "$1" = example ] && tests=examples/ci || tests=tests/python
"$python" -m pytest -p pytester -p no:cacheprovider --basetemp "$scratch/tmp" --rootdir "$scratch" \
  --xr-artefacts "$scratch/artefacts" --xr-app "$DEMO" "$tests"
