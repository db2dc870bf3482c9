#!/usr/bin/env bash
# Installs everything the build, the tests (python3 and readelf for the library check),
# the cross builds and the report need, from Debian's packages (and the pinned
# plotting library from the npm registry).
# Idempotent and quiet: a second run installs nothing.
set -euo pipefail
cd "$(dirname "$0")/.."

SUDO=""
[ "$(id -u)" -eq 0 ] || SUDO="sudo"

need_update=0
for arch in armhf arm64; do
  if ! dpkg --print-foreign-architectures | grep -qx "$arch"; then
    $SUDO dpkg --add-architecture "$arch"
    need_update=1
  fi
done

pkgs=(
  cmake ninja-build g++ clang pkg-config
  libgtest-dev libgmock-dev googletest libbenchmark-dev
  "android-liblog-dev:$(dpkg --print-architecture)" android-liblog-dev:armhf android-liblog-dev:arm64
  libcli11-dev libfmt-dev nlohmann-json3-dev
  g++-arm-linux-gnueabihf g++-aarch64-linux-gnu qemu-user
  valgrind python3 binutils
  chromium
)
missing=()
for p in "${pkgs[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if [ "${#missing[@]}" -gt 0 ]; then
  if [ "$need_update" -eq 1 ] || [ ! -f /var/lib/apt/periodic/calmodule-updated ]; then
    # A mirror caught mid-sync fails one index now and then; try again before giving up on it.
    for attempt in 1 2 3; do
      $SUDO apt-get update -qq >/dev/null 2>&1 && break
      sleep 5
    done
    $SUDO mkdir -p /var/lib/apt/periodic && $SUDO touch /var/lib/apt/periodic/calmodule-updated
  fi
  DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
fi

# The report embeds the 3D partial bundle of plotly.js, pinned in tools/report/package.json and fetched with npm;
# machines of this kind come with Node.js, but bring npm from Debian where it is missing.
if ! command -v npm >/dev/null; then
  DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -qq --no-install-recommends npm >/dev/null
fi
if command -v npm >/dev/null && [ ! -f tools/report/node_modules/plotly.js-gl3d-dist-min/plotly-gl3d.min.js ] && [ -f tools/report/package.json ]; then
  (cd tools/report && npm ci --silent --no-audit --no-fund >/dev/null 2>&1 || npm install --silent --no-audit --no-fund >/dev/null)
fi
