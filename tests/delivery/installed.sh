#!/usr/bin/env bash
# Runs in a separate root: installs the packages in /tmp/packages, tests their content, and removes them.
set -euo pipefail # grep must not use -q here: it would close the pipe early, and the writer would fail
cd /tmp
fail() { echo "$*" >&2; exit 1; }
files() { find /usr /etc -xdev | sort; }

for deb in packages/*.deb; do
  packages+=("$(dpkg-deb --field "$deb" Package)")
done
others=$(for deb in packages/*.deb; do dpkg-deb --field "$deb" Depends; done | tr ',' '\n' | grep -v fwx-nat64 | paste -sd,)
others+=,python3-venv,python3-wheel,python3-dev,python3-cffi,python3-setuptools
apt-get satisfy -y --no-install-recommends "$others" >apt.log 2>&1 || fail "$(cat apt.log)"

files >before
apt-get install -y --no-install-recommends ./packages/*.deb >apt.log 2>&1 || fail "$(cat apt.log)"
files >installed

# The files, and the package that each belongs to.
lib=/usr/lib/$(gcc -print-multiarch)
expect_owner() { # PACKAGE FILE...
  local file
  for file in "${@:2}"; do
    [[ $(dpkg --search "$file" | cut -d: -f1) == "$1" ]] || fail "$file is not of $1"
  done
}
expect_owner libfwx-nat64-1 "$lib"/libfwx_{nat64,host,nat64_model}.so.1
expect_owner libfwx-nat64-dev "$lib"/libfwx_{nat64,host,nat64_model}.so "$lib"/pkgconfig/fwx_{nat64,host,nat64_model}.pc \
  "$lib/cmake/fwx_nat64/fwx_nat64Config.cmake" /usr/include/fwx_{nat64/fwx_nat64,host/fwx_host,nat64_model/model}.h \
  /usr/include/fwx_{nat64/fwx_nat64,host/adapter}.hpp /usr/share/man/man3/fwx_nat64.3.gz /usr/share/doc/libfwx-nat64-dev/examples/pal.c
expect_owner libfwx-nat64-tools /usr/bin/{natctl,nat64d} /usr/share/man/man1/natctl.1.gz /usr/share/man/man8/nat64d.8.gz \
  /lib/systemd/system/{natctl-serve,nat64d}@.service /usr/share/nat64d/{alerts,scrape}.yml /usr/share/nat64d/dashboard.json \
  /usr/share/bash-completion/completions/natctl "$lib/wireshark/plugins/fwx_nat64.lua" \
  /usr/share/doc/libfwx-nat64-tools/protocol.md.gz /usr/share/doc/libfwx-nat64-tools/examples/nat64.natctl
ldconfig --print-cache | grep -F "libfwx_nat64.so.1 " >/dev/null || fail "the linker cache was not updated"
cmp /usr/share/bash-completion/completions/natctl <(natctl completion bash)
cmp /usr/share/zsh/vendor-completions/_natctl <(natctl completion zsh)
cmp /usr/share/fish/vendor_completions.d/natctl.fish <(natctl completion fish)
for example in nat64 mapt settings embedded; do
  natctl batch "/usr/share/doc/libfwx-nat64-tools/examples/$example.natctl" >/dev/null 2>examples.log || fail "$(cat examples.log)"
done
systemd-analyze --man=no verify natctl-serve@alpha.service nat64d@alpha.service
! command -v tshark >/dev/null || tshark -G plugins 2>/dev/null | grep -F fwx_nat64.lua >/dev/null || fail "no dissector"
expect_owner nat64-gateway /usr/sbin/nat64-gateway /usr/share/man/man8/nat64-gateway.8.gz \
  /lib/systemd/system/nat64-gateway{,-translator}@.service /usr/share/doc/nat64-gateway/gateway.md.gz
systemd-analyze --man=no verify nat64-gateway@alpha.service nat64-gateway-translator@alpha.service
[[ $(nat64-gateway --version) == nat64-gateway\ * ]]
expect_owner python3-fwx-nat64 /usr/lib/python3/dist-packages/fwx_nat64/{__init__,_commands}.py

# A server as its systemd unit runs it, and programs built with the packages.
export FWX_HOST_DIR=/run/fwx
install --directory --owner=fwx --group=fwx --mode=0700 $FWX_HOST_DIR
as_fwx=(setpriv --reuid=fwx --regid=fwx --clear-groups)
"${as_fwx[@]}" natctl serve alpha >served 2>refused &
server=$!
trap 'kill $server 2>/dev/null || true' EXIT
until [[ -s served ]]; do kill -0 $server; done

for names in fwx_nat64_model "fwx_nat64 fwx_host"; do
  read -ra flags <<<"$(pkg-config --cflags --libs $names)"
  [[ ${flags[*]} == "-l${names%% *} -lfwx_host" ]] || fail "flags of pkg-config: ${flags[*]}"
done
warnings=(-Wall -Wextra -Wpedantic -Wconversion -Werror)
mkdir project
cat >project/CMakeLists.txt <<'END'
cmake_minimum_required(VERSION 3.25)
project(project LANGUAGES C CXX)
set(CMAKE_CXX_STANDARD 20)
find_package(fwx_nat64 1.0 REQUIRED)
link_libraries(fwx_nat64::fwx_nat64 fwx_nat64::fwx_host)
add_executable(pal_c ${EXAMPLES}/pal.c)
add_executable(pal_cxx ${EXAMPLES}/pal.cpp)
END
examples=/usr/share/doc/libfwx-nat64-dev/examples
cc -std=c11 "${warnings[@]}" $examples/pal.c -o pal_c "${flags[@]}"
c++ -std=c++20 "${warnings[@]}" $examples/pal.cpp -o pal_cxx "${flags[@]}"
cmake -S project -B project/build -DEXAMPLES=$examples >/dev/null
cmake --build project/build >/dev/null
FWX_HOST_DIR="" ./page.sh README.md 10 "^## Ten minutes" "^## The interfaces"
run_pal() {
  local said
  said=$("${as_fwx[@]}" "$@" alpha) || fail "$*: $said"
  echo "$*: $said"
}
for pal in {.,project/build}/pal_{c,cxx}; do run_pal "$pal"; done
run_pal python3 /usr/share/doc/python3-fwx-nat64/examples/pal.py

# The Python module from its sources, and from a source distribution and a wheel, built on the development package.
# setuptools and cffi are Debian's.
install_in() { # ENVIRONMENT WHAT
  /usr/bin/python3 -m venv --system-site-packages "$1"
  "$1/bin/pip" install --quiet --ignore-installed --no-build-isolation --no-deps --no-index "$2"
  run_pal "$1/bin/python" /usr/share/doc/python3-fwx-nat64/examples/pal.py
  "${as_fwx[@]}" "$1/bin/python" -c 'import fwx_nat64; print(fwx_nat64.__file__)' | grep -F "$1" >/dev/null || fail "not of $1"
}
install_in /tmp/of_tree ./python
(cd python && /tmp/of_tree/bin/python setup.py --quiet sdist --dist-dir /tmp/dist 2>/dev/null)
tar --list --gzip --file="$(echo dist/*.tar.gz)" | grep -F /fwx_nat64/_commands.py >/dev/null || fail "no commands in the distribution"
/tmp/of_tree/bin/pip wheel --quiet --no-build-isolation --no-deps --no-index --wheel-dir dist dist/*.tar.gz
install_in /tmp/of_wheel dist/*.whl
# Without the library the build says what to install.
said=$(cd python && PKG_CONFIG_LIBDIR=/ python3 setup.py --quiet build_py --build-lib /tmp/none 2>&1) && fail "a build without the library"
[[ $said == *"install libfwx-nat64-dev"* ]] || fail "$said"

# nat64d, as its systemd unit runs it, with the server.
mkdir -p /etc/nat64d
echo 'pool add --id 64 --param 1 --start 203.0.113.1 --end 203.0.113.9' >/etc/nat64d/alpha.natctl
install --directory --owner=fwx --group=fwx --mode=0700 /var/lib/fwx
read -ra run <<<"$(sed -n 's/^ExecStart=//p' /lib/systemd/system/nat64d@.service | sed 's#%i#alpha#g; s#%S#/var/lib#g; s#\${NAT64D_CONFIG}#/etc/nat64d/alpha.natctl#; s# \$.*##')"
"${as_fwx[@]}" "${run[@]}" 2>daemon.log &
daemon=$!
until "${as_fwx[@]}" natctl --connect alpha daemon status >status 2>&1; do kill -0 $daemon || fail "$(cat daemon.log)"; done
"${as_fwx[@]}" natctl --connect alpha daemon replay >status 2>&1 || fail "$(cat status daemon.log)"
grep -E '^in_step +true' status >/dev/null || fail "$(cat status)"
kill $daemon
wait $daemon
rm -r /etc/nat64d /var/lib/fwx
kill $server
wait $server

# The commands of the documents, with the programs, the alert rules and the scrape configuration that are installed. The
# ports in operating.md may be taken outside, so it gets a network of its own.
"${as_fwx[@]}" ./page.sh natctl.md 10
if command -v prometheus >/dev/null; then
  unshare --net sh -c 'ip link set lo up && exec "$@"' sh "${as_fwx[@]}" ./page.sh operating.md 25
fi

# Only the user and files that Python compiled of its own modules may remain.
apt-get purge -y "${packages[@]}" >apt.log 2>&1 || fail "$(cat apt.log)"
[[ $(comm -13 before installed | wc -l) -ge 30 ]] || fail "too few files were installed"
comm -13 before <(files) | while read -r file; do
  [[ $file =~ ^/etc/((passwd|group|shadow|gshadow)-|\.pwd\.lock)$ ]] && continue
  [[ $file == */__pycache__* && $file != *fwx_nat64* ]] || echo "$file"
done >left
[[ ! -s left ]] || fail "left behind: $(cat left)"
[[ -z $(dpkg-query --show "${packages[@]}" 2>/dev/null) ]] || fail "packages stay registered"
