#!/usr/bin/env bash
# Install the Debian packages this project needs to build, test and benchmark,
# and those named as arguments (tools that one script alone needs).
# Does nothing (and prints nothing) when all of them are already installed.
set -euo pipefail

PACKAGES=(
  build-essential cmake
  libgtest-dev libbenchmark-dev
  clang libclang-rt-14-dev
  python3-ezdxf
  qt6-base-dev
  xvfb xauth
  librecad poppler-utils
  fonts-dejavu-core
  time
  "$@"
)

missing=()
for pkg in "${PACKAGES[@]}"; do
  status=$(dpkg-query -W -f='${Status}' "$pkg" 2>/dev/null || true)
  if [[ "$status" != "install ok installed" ]]; then
    missing+=("$pkg")
  fi
done

if [[ ${#missing[@]} -eq 0 ]]; then
  exit 0
fi

if [[ $(id -u) -eq 0 ]]; then
  SUDO=()
elif command -v sudo >/dev/null 2>&1; then
  SUDO=(sudo)
else
  echo "install-deps: these Debian packages are missing: ${missing[*]}" >&2
  echo "install-deps: as root, run: apt-get install --no-install-recommends ${missing[*]}" >&2
  exit 1
fi

# One line on the terminal; apt's own output goes to a log, shown on failure.
log=$(mktemp -t install-deps.XXXXXX.log)
echo "install-deps: installing ${missing[*]} (log: $log)" >&2
apt_install() {
  "${SUDO[@]}" env DEBIAN_FRONTEND=noninteractive \
    apt-get install -y -q --no-install-recommends "${missing[@]}" </dev/null
}
if ! { apt_install || { "${SUDO[@]}" env DEBIAN_FRONTEND=noninteractive apt-get update -q </dev/null && apt_install; }; } \
    >>"$log" 2>&1; then
  tail -n 20 "$log" >&2
  echo "install-deps: installing failed (log: $log)" >&2
  exit 1
fi
rm -f "$log"
