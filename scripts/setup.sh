#!/usr/bin/env bash
# setup.sh - install what the build, tests, benchmarks and fuzzers need on a fresh Debian machine.
# Idempotent: a second run only confirms what is there. Each i386 peer is optional, because a
# mirror can be out of step for one architecture (or the package is not multi-arch); the i686
# build then skips that peer's checks and says so.
set -euo pipefail

SUDO=""
if [ "$(id -u)" -ne 0 ]; then SUDO="sudo"; fi
export DEBIAN_FRONTEND=noninteractive

# Everything both widths need; the 64-bit set must install or the set-up fails.
BASE=(build-essential cmake ninja-build pkg-config gcc-multilib g++-multilib clang lld
      libclang-rt-14-dev llvm
      libgtest-dev libgmock-dev libbenchmark-dev
      zlib1g-dev libdeflate-dev liblz4-dev liblzo2-dev libbz2-dev libzfp-dev libxxhash-dev
      libdivsufsort-dev
      lz4 gzip bzip2 lzop zfp xxhash)
# The 32-bit twins of the libraries the i686 tests and benchmarks link against.
I386=(libgtest-dev:i386 libgmock-dev:i386 libbenchmark-dev:i386 libdeflate-dev:i386
      liblz4-dev:i386 liblzo2-dev:i386 libxxhash-dev:i386
      libdivsufsort-dev:i386 libbz2-1.0:i386 zlib1g:i386)

missing() {
  local p out=()
  for p in "$@"; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || out+=("$p")
  done
  echo "${out[@]:-}"
}

# Many x86-64 kernels run no 32-bit programs; there the i686 build's programs run under
# user-mode emulation, so qemu-user is needed exactly when a tiny i686 program fails to run.
i686_runs_natively() {
  local dir rc
  dir=$(mktemp -d)
  printf 'int main(void) { return 0; }\n' >"$dir/probe.c"
  gcc -m32 "$dir/probe.c" -o "$dir/probe" 2>/dev/null && "$dir/probe" 2>/dev/null
  rc=$?
  rm -rf "$dir"
  return $rc
}
need_qemu() {
  command -v qemu-i386 >/dev/null && return 1
  ! i686_runs_natively
}

need_base=$(missing "${BASE[@]}")
need_i386=$(missing "${I386[@]}")
if [ -z "$need_base" ] && [ -z "$need_i386" ] && ! need_qemu; then
  echo "setup: all packages present"
  exit 0
fi

if ! dpkg --print-foreign-architectures | grep -qx i386; then
  $SUDO dpkg --add-architecture i386
fi
# A mirror in mid-sync can fail one index; the others are still usable, so go on and let
# the installs below say what is really missing.
for try in 1 2 3; do
  if $SUDO apt-get update -qq; then break; fi
  echo "setup: apt-get update failed (try $try); retrying" >&2
  sleep 5
done
if [ -n "$need_base" ]; then
  # shellcheck disable=SC2086
  $SUDO apt-get install -y -qq --no-install-recommends $need_base >/dev/null
fi
if need_qemu; then
  echo "setup: this kernel runs no i686 programs: installing qemu-user to run them"
  $SUDO apt-get install -y -qq --no-install-recommends qemu-user >/dev/null
fi
for p in $need_i386; do
  if ! $SUDO apt-get install -y -qq --no-install-recommends "$p" >/dev/null 2>&1; then
    echo "setup: warning: $p did not install; the i686 build skips the checks that need it" >&2
  fi
done
echo "setup: done"
