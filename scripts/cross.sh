#!/usr/bin/env bash
# Builds the service, the tools, the MAP library and the tests for an ARM RSU
# on an x86-64 Debian 12 machine:
#   scripts/cross.sh arm64|armhf [--test] [--package]
#     --test      run every test through qemu-user (always when CI=true)
#     --package   make the Debian packages for the architecture
# Output: build-<arch>/ (the build; packages in build-<arch>/packages/).
# The target's libraries come from Debian's packages for that architecture,
# downloaded with a private apt state and unpacked into build-<arch>/sysroot;
# the host's own packages stay as they are. The sysroot is made again only
# when the list of target packages changes.
set -euo pipefail
cd "$(dirname "$0")/.."
root="$PWD"

usage() {
  echo "usage: $0 arm64|armhf [--test] [--package]" >&2
  exit 2
}
arch="${1:-}"
[ $# -gt 0 ] && shift
case "$arch" in
  arm64) triple=aarch64-linux-gnu qemu=qemu-aarch64-static ;;
  armhf) triple=arm-linux-gnueabihf qemu=qemu-arm-static ;;
  *) usage ;;
esac
run_tests=0
package=0
[ "${CI:-}" = true ] && run_tests=1
for opt in "$@"; do
  case "$opt" in
    --test) run_tests=1 ;;
    --package) package=1 ;;
    *) usage ;;
  esac
done
jobs="${JOBS:-$(nproc)}"
dir="$root/build-$arch"
sysroot="$dir/sysroot"
times=()
step_start=$SECONDS
step_done() {
  times+=("$arch $1: $((SECONDS - step_start)) s")
  step_start=$SECONDS
}

# Host side: the project's own tools (asn1c, idlc, cmake) plus the cross
# compiler and the emulator.
bash scripts/install-deps.sh "crossbuild-essential-$arch" qemu-user-static

# What the target build links and its tests run with, by Debian package name.
TARGET_PACKAGES=(
  libc6-dev libstdc++-12-dev
  libcjson-dev libconfig-dev libconfig++-dev libmbedtls-dev
  libspdlog-dev libfmt-dev libgeographiclib-dev
  cyclonedds-dev
  libgtest-dev libgmock-dev libpng-dev
)

# A dpkg database of the sysroot (status and file lists with the sysroot's
# own paths, shlibs and symbols files), so that dpkg-shlibdeps computes the
# target's dependencies from the target's packages.
add_to_dpkg_db() {
  local deb="$1" db="$2" name ma info
  name=$(dpkg-deb -f "$deb" Package)
  ma=$(dpkg-deb -f "$deb" Multi-Arch)
  info="$db/info/$name"
  [ "$ma" = same ] && info="$info:$arch"
  {
    dpkg-deb -f "$deb"
    printf 'Status: install ok installed\n\n'
  } >>"$db/status.new"
  dpkg-deb -c "$deb" | awk -v r="$sysroot" '{ p = $6; sub(/^\./, "", p); sub(/\/$/, "", p); if (p != "") print r p }' >"$info.list"
  local ctl
  ctl=$(mktemp -d)
  dpkg-deb -e "$deb" "$ctl"
  for f in shlibs symbols; do
    if [ -f "$ctl/$f" ]; then cp "$ctl/$f" "$info.$f"; fi
  done
  rm -rf "$ctl"
}

# apt for the target architecture with its own state in the build folder.
apt="$dir/apt"
apt_opts=(-o "APT::Architecture=$arch" -o "APT::Architectures::=$arch"
  -o "Dir::State=$apt/state" -o "Dir::State::status=$apt/state/status"
  -o "Dir::Cache=$apt/cache" -o Debug::NoLocking=1 -qq)

make_sysroot() {
  local want
  want=$(printf '%s\n' "layout 2" "$arch" "${TARGET_PACKAGES[@]}")  # layout: how the sysroot is made
  if [ -f "$sysroot/.packages" ] && [ "$(cat "$sysroot/.packages")" = "$want" ]; then
    echo "cross: sysroot for $arch is up to date"
    return
  fi
  echo "cross: making the $arch sysroot from Debian's packages"
  mkdir -p "$apt/state/lists/partial" "$apt/cache/archives/partial"
  : >"$apt/state/status"
  # A mirror in the middle of a sync answers with stale indexes: try again,
  # then go on with the indexes that did arrive (a package that cannot be
  # had stops the download below).
  local try
  for try in 1 2 3; do
    apt-get "${apt_opts[@]}" update && break
    if [ $try -eq 3 ]; then echo "cross: some package indexes for $arch are missing" >&2; else sleep 15; fi
  done
  apt-get "${apt_opts[@]}" install -y --download-only --no-install-recommends "${TARGET_PACKAGES[@]}"
  rm -rf "$sysroot"
  mkdir -p "$sysroot/var/lib/dpkg/info"
  local db="$sysroot/var/lib/dpkg"
  for deb in "$apt"/cache/archives/*.deb; do
    dpkg-deb -x "$deb" "$sysroot"
    add_to_dpkg_db "$deb" "$db"
  done
  mv "$db/status.new" "$db/status"
  echo 1 >"$db/info/format"  # multiarch layout: pkg:arch.list for Multi-Arch: same
  # Links that point at absolute paths (/lib/... from /usr/lib/...) would
  # leave the sysroot: point them inside it.
  find "$sysroot" -type l -lname '/*' | while read -r link; do
    ln -sfn "$(realpath -m --relative-to="$(dirname "$link")" "$sysroot$(readlink "$link")")" "$link"
  done
  # CMake packages written with fixed /usr paths (cJSON's) would point at the
  # host's files: make them relative to the sysroot the build uses.
  grep -rlE 'IMPORTED_LOCATION_[A-Z]+ "/usr' "$sysroot/usr/lib/$triple/cmake" | xargs -r dirname | sort -u |
    while read -r pkgdir; do sed -i 's#"/usr#"${CMAKE_SYSROOT}/usr#g' "$pkgdir"/*.cmake; done
  echo "$want" >"$sysroot/.packages"
}

# Each package is for the architecture, and every package its Depends name
# exists in Debian for it (or is one of ours).
check_packages() {
  local deb dep ours
  ours=$(for deb in "$1"/*.deb; do dpkg-deb -f "$deb" Package; done)
  for deb in "$1"/*.deb; do
    if [ "$(dpkg-deb -f "$deb" Architecture)" != "$arch" ]; then
      echo "cross: $(basename "$deb") is not for $arch" >&2
      status=1
    fi
    for dep in $(dpkg-deb -f "$deb" Depends | tr ',|' '\n\n' | sed -E 's/\(.*\)//; s/:any//; s/ //g'); do
      grep -qxF "$dep" <<<"$ours" && continue
      if ! apt-cache "${apt_opts[@]}" show "$dep" >/dev/null 2>&1; then
        echo "cross: $(basename "$deb") depends on $dep, which Debian does not have for $arch" >&2
        status=1
      fi
    done
    echo "$(basename "$deb"): Depends: $(dpkg-deb -f "$deb" Depends)"
  done
}

mkdir -p "$dir"
make_sysroot
step_done "sysroot"

cmake -S . -B "$dir" -DCMAKE_TOOLCHAIN_FILE="$root/cmake/toolchain-$arch.cmake" \
  -DV2X_SYSROOT="$sysroot" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DV2X_BUILD_BENCH=OFF >/dev/null
cmake --build "$dir" -j "$jobs"
step_done "build"

status=0
if [ $run_tests -eq 1 ]; then
  # The emulator finds the target's loader and libraries in the sysroot;
  # the tests start the programs they test through it as well.
  if ! QEMU_LD_PREFIX="$sysroot" ctest --test-dir "$dir" --output-on-failure -j "$jobs" --timeout 900; then
    status=1
  fi
  step_done "tests"
fi

if [ $package -eq 1 ]; then
  # debian/ with this toolchain and sysroot; the tests ran above.
  V2X_CROSS_ARCH="$arch" V2X_TOOLCHAIN_FILE="$root/cmake/toolchain-$arch.cmake" V2X_SYSROOT="$sysroot" \
    DEB_BUILD_OPTIONS="nocheck ${DEB_BUILD_OPTIONS:-}" bash scripts/package.sh "$dir/packages"
  check_packages "$dir/packages"
  step_done "packages"
fi
printf '== %s\n' "${times[@]}"
exit $status
