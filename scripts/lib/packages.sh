# shellcheck shell=bash
# What the scripts need of Debian, installed only where it is missing. Sourced, not run.

BUILD_PACKAGES=(g++ cmake ninja-build libcli11-dev libtoml11-dev nlohmann-json3-dev libpugixml-dev libncurses-dev
  libgtest-dev libgmock-dev libxml2-utils patch)
CLANG_PACKAGES=(clang libclang-rt-dev)  # with its sanitizers
ARM_PACKAGES=(g++-arm-linux-gnueabihf qemu-user googletest)
COVERAGE_PACKAGES=(llvm)
LINT_PACKAGES=(clang-format clang-tidy)
PICTURE_PACKAGES=(gtkwave xvfb xterm imagemagick fonts-dejavu-core)

# install_missing PACKAGE...: as root, or else through sudo.
install_missing() {
  local package missing=() as_root=()
  for package in "$@"; do
    dpkg-query -W -f '${db:Status-Abbrev}' "$package" 2>/dev/null | grep -q '^ii' || missing+=("$package")
  done
  [ ${#missing[@]} -gt 0 ] || return 0

  echo "Installing ${missing[*]}"
  if [ "$(id -u)" -ne 0 ]; then
    if ! command -v sudo >/dev/null; then
      echo "Missing packages: ${missing[*]}. Install them as root, or install sudo." >&2
      return 1
    fi
    as_root=(sudo)
  fi
  "${as_root[@]}" apt-get update -q
  "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -q -y --no-install-recommends "${missing[@]}"
}
