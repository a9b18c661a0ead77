# Sourced by the scripts beside this folder: goes to the repository's root and brings the packages' helpers.
cd "$(dirname "${BASH_SOURCE[0]}")/../.."
source scripts/lib/packages.sh

# A second build of the same sources costs next to nothing with ccache; without it nothing changes.
if [ -z "${CMAKE_CXX_COMPILER_LAUNCHER:-}" ] && command -v ccache >/dev/null; then
  export CMAKE_CXX_COMPILER_LAUNCHER=ccache
  export CCACHE_BASEDIR=$PWD CCACHE_NOHASHDIR=1  # another checkout of the same sources counts as the same
fi

# build PRESET [TARGET...]: configures and builds as far as it goes; prints what was complained of, if anything was.
build() {
  local preset=$1 log=build/$1.log
  shift
  mkdir -p build
  echo "camclock: building preset $preset (log: $log)"
  if ! { cmake --preset "$preset" && cmake --build --preset "$preset" ${1:+--target "$@"} -- -k 0; } \
    >"$log" 2>&1 </dev/null; then
    grep -E '(error|warning): |^CMake Error|undefined reference' "$log" | sort -u | head -n 60 >&2
    tail -n 20 "$log" | cut -c 1-300 >&2
    echo "camclock: preset $preset does not build (see above, and all of it in $log)" >&2
    return 1
  fi
}
