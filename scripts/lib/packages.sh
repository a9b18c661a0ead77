# Sourced by the scripts beside this folder: which Debian and Ubuntu packages camclock needs, and how they get there.
# A machine without apt-get is left as it is; what is missing there shows itself when CMake looks for it.

# The library, its tests and its package check.
library_packages=(
  cmake g++ ninja-build pkg-config
  libgtest-dev liblog4cpp5-dev
)

# The program, its camera for the demo, and their tests.
program_packages=(
  libcli11-dev libfmt-dev nlohmann-json3-dev
  libgstreamer1.0-dev libgstreamer-plugins-base1.0-dev libgstrtspserver-1.0-dev
  gstreamer1.0-plugins-base gstreamer1.0-plugins-good gstreamer1.0-plugins-bad gstreamer1.0-plugins-ugly
  gstreamer1.0-libav
)

# Tests between hosts in network namespaces.
network_packages=(iproute2)

# The benches: what measures, and the peers that are measured beside camclock.
bench_packages=(
  cmake g++ ninja-build pkg-config liblog4cpp5-dev
  libbenchmark-dev valgrind gnuplot-nox python3 iproute2 iputils-clockdiff
  libspdlog-dev libgsl-dev libtbb-dev libconcurrentqueue-dev libboost-dev libglib2.0-dev libavcodec-dev
  libgstreamer1.0-dev libgstreamer-plugins-base1.0-dev libgstreamer-plugins-bad1.0-dev gstreamer1.0-plugins-good
)

# What .ci/run adds: the second compiler with its sanitizer and fuzzer runtimes, the two checkers, what runs the test of
# bench/compare, and what examples/AvformatRecorder stands on.
ci_packages=(clang clang-format clang-tidy libclang-rt-dev python3 libavformat-dev)

# is_installed PACKAGE
is_installed() {
  [ "$(dpkg-query --show --showformat='${db:Status-Status}' "$1" 2>/dev/null)" = installed ]
}

# install_missing PACKAGE...: installs those that are not there yet; asks the package index only if there are any.
install_missing() {
  local package missing=() as_root=()
  command -v apt-get >/dev/null || return 0
  for package in "$@"; do
    is_installed "$package" || missing+=("$package")
  done
  [ ${#missing[@]} -gt 0 ] || return 0

  if [ "$(id -u)" -ne 0 ]; then
    if ! command -v sudo >/dev/null; then
      echo "camclock: these packages are missing, and only root can install them: ${missing[*]}" >&2
      return 1
    fi
    as_root=(sudo)
  fi
  echo "camclock: installing ${missing[*]}"
  local log
  log=$(mktemp)
  if "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive sh -c \
    'apt-get update -q && apt-get install -q -y --no-install-recommends "$@"' sh "${missing[@]}" >"$log" 2>&1 </dev/null
  then
    rm -f "$log"
  else
    tail -n 20 "$log" >&2
    rm -f "$log"
    echo "camclock: apt-get could not install these packages (its last words stand above): ${missing[*]}" >&2
    return 1
  fi
}
