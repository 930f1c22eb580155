# Sourced by the other scripts: installs the Debian packages that are missing, and builds.

need_packages() {
  local missing=() package
  for package in "$@"; do
    dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'ok installed' || missing+=("$package")
  done
  [[ ${#missing[@]} -eq 0 ]] && return
  say "installing ${missing[*]}"
  local sudo=()
  [[ $EUID -eq 0 ]] || sudo=(sudo)
  "${sudo[@]}" apt-get update -qq
  "${sudo[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
}

build() { # PRESET [TARGET...]
  cmake --preset "$1" >/dev/null
  cmake --build --preset "$1" ${2:+--target "${@:2}"} | tail -n 1
}

say() { printf '\n==> %s (%d s)\n' "$*" "$SECONDS"; }

python_packages=(python3-dev python3-cffi python3-setuptools)
build_packages=(g++ cmake ninja-build libcli11-dev nlohmann-json3-dev libedit-dev libmicrohttpd-dev
  prometheus-cpp-dev zlib1g-dev libcurl4-openssl-dev libssl-dev
  libnftables-dev libnetfilter-conntrack-dev libmnl-dev)
clang_packages=(clang libclang-rt-14-dev lld) # for the presets asan and tsan
# Programs that the gateway runs, and tools of its tests.
gateway_packages=(tayga nftables conntrack iproute2 iputils-ping)
