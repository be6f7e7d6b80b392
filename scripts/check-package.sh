#!/usr/bin/env bash
# Packs a plain Release build folder ($1, made by check-plain-build.sh) into
# the Debian package and checks it as someone installing it would get it:
# unpacked into a temporary root, its programs run (--version, connect --help,
# and connect installs the hook command from the package), its manual page
# rendered, its completions and user unit in place, its dependencies declared.
set -euo pipefail
source=$(cd "$(dirname "$0")/.." && pwd)
build=$(cd "$1" && pwd)
scratch=$(mktemp -d /tmp/tidewick-package-XXXXXX)
trap 'rm -rf "$scratch"' EXIT
fail() {
  echo "check-package: $*" >&2
  exit 1
}

(cd "$build" && cpack -G DEB -B "$scratch/out") >"$scratch/cpack.log" 2>&1 || {
  cat "$scratch/cpack.log" >&2
  fail "cpack failed"
}
version=$(sed -n 's/^project(Tidewick VERSION \([0-9.]*\).*/\1/p' "$source/CMakeLists.txt")
deb="$scratch/out/tidewick_${version}_$(dpkg --print-architecture).deb"
[ -f "$deb" ] || fail "no $(basename "$deb") among: $(ls "$scratch/out")"

root="$scratch/root"
dpkg-deb -x "$deb" "$root"
tidewick="$root/usr/bin/tidewick"
[ "$("$tidewick" --version)" = "tidewick $version" ] || fail "tidewick --version"
"$tidewick" connect --help >"$scratch/help" || fail "tidewick connect --help"
grep -q '^Usage: tidewick connect' "$scratch/help" || fail "connect --help: $(cat "$scratch/help")"
home="$scratch/home"
mkdir -p "$home/.claude"
TIDEWICK_HOME="$home" HOME="$home" PATH=/usr/bin:/bin "$tidewick" connect claude --yes >/dev/null ||
  fail "tidewick connect claude failed"
cmp -s "$home/Library/Application Support/Tidewick/bin/tidewick-hook" "$root/usr/bin/tidewick-hook" ||
  fail "connect did not install the package's tidewick-hook"

MANWIDTH=80 MANPAGER=cat man --warnings -l "$root/usr/share/man/man1/tidewick.1.gz" \
  >"$scratch/man.out" 2>"$scratch/man.err" || fail "man -l failed: $(cat "$scratch/man.err")"
[ -s "$scratch/man.err" ] && fail "the manual page warns: $(cat "$scratch/man.err")"
grep -q 'tidewick service install' "$scratch/man.out" || fail "the manual page lacks the service commands"
for file in usr/share/bash-completion/completions/tidewick usr/share/zsh/vendor-completions/_tidewick \
  usr/share/fish/vendor_completions.d/tidewick.fish usr/lib/systemd/user/tidewick.service; do
  [ -f "$root/$file" ] || fail "the package lacks /$file"
done
grep -qx 'ExecStart=/usr/bin/tidewick app --headless' "$root/usr/lib/systemd/user/tidewick.service" ||
  fail "the user unit does not run /usr/bin/tidewick"

# What apt installs with it: every library tidewick links.
depends=$(dpkg-deb -I "$deb" | sed -n 's/^ Depends: //p')
names=$(sed 's/ ([^)]*)//g; s/, /\n/g' <<<"$depends")
for library in libc6 libstdc++6 libncursesw6 libsystemd0 libutf8proc2; do
  grep -qxF "$library" <<<"$names" || fail "Depends lacks $library: $depends"
done
echo "check-package: $(basename "$deb") unpacks and runs; Depends: $depends"
