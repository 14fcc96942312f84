#!/bin/sh
# Prints the path of an armhf sysroot with the libraries that libjaxel and its
# tests link against, building it on first use. The sysroot is cached outside the
# repository, keyed by its package list, so later runs on this machine reuse it.
# usage: armhf-sysroot.sh   (as root; progress goes to stderr)
set -eu

suite=bookworm
packages="libglib2.0-dev,libgtest-dev,libgmock-dev,libstdc++6,libssl-dev,libjson-glib-dev"
cache=${JAXEL_SYSROOT_CACHE:-/var/cache/jaxel-armhf-sysroot}
key=$(printf '%s %s %s\n' armhf "$suite" "$packages" | sha256sum | cut -c1-16)
sysroot="$cache/$key"

# The first archive URI that this machine's apt sources use for the release
# itself; the security suite is left out on purpose.
apt_mirror() {
  {
    awk '/^URIs:/ { uri = $2 } /^Suites:/ { for (i = 2; i <= NF; i++) if ($i == s) print uri }
         /^$/ { uri = "" }' s="$suite" /etc/apt/sources.list.d/*.sources 2>/dev/null || true
    grep -hs '^deb ' /etc/apt/sources.list /etc/apt/sources.list.d/*.list |
      sed 's/\[[^]]*\]//' | awk '$3 == s { print $2 }' s="$suite" || true
  } | head -n 1
}

if [ ! -f "$sysroot/.complete" ]; then
  mirror=$(apt_mirror)
  [ -n "$mirror" ] || { echo "no apt source for $suite found" >&2; exit 1; }
  echo "building the armhf sysroot in $sysroot (first run only)" >&2
  mkdir -p "$cache"
  rm -rf "$sysroot.tmp"
  mmdebstrap --quiet --variant=extract --architectures=armhf --include="$packages" \
    "$suite" "$sysroot.tmp" "$mirror" >&2
  # Absolute library links would point into the host when linking; make them
  # relative so they resolve inside the sysroot wherever it lies.
  find "$sysroot.tmp/lib" "$sysroot.tmp/usr" -type l -lname '/*' | while read -r link; do
    ups=$(dirname "${link#"$sysroot.tmp/"}" | sed 's|[^/][^/]*|..|g')
    ln -sfn "$ups$(readlink "$link")" "$link"
  done
  touch "$sysroot.tmp/.complete"
  rm -rf "$sysroot"
  mv "$sysroot.tmp" "$sysroot"
fi
echo "$sysroot"
