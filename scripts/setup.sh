# Sourced by run and test: installs what packages.txt lists and configures a build. Everything it says goes to
# standard error, so that the output of run can be piped.

# Clones share the compiler's cache: what it knows a file by does not depend on where the tree lies.
export CCACHE_BASEDIR=$root CCACHE_NOHASHDIR=1

say() { printf 'vorel: %s\n' "$*" >&2; }
fail() { say "$*"; exit 1; }

# install_packages [LIST]: installs missing packages, and nothing when the list has been dealt with before.
install_packages() {
  local name=${1:-packages.txt} list stamp missing
  list=$root/$name stamp=$root/build/.${name//\//-}
  cmp -s "$list" "$stamp" && return
  command -v dpkg-query >/dev/null || fail "this needs Debian 12 (or a system with its packages): install the packages of $name by hand, then copy it to $stamp."
  missing=$(comm -23 <(grep -v '^#' "$list" | sort) <(dpkg-query -W -f '${Package} ${db:Status-Status}\n' 2>/dev/null | awk '$2=="installed"{print $1}' | sort -u))
  if [ -n "$missing" ]; then
    local as_root=()
    if [ "$(id -u)" != 0 ]; then
      command -v sudo >/dev/null || fail "packages are missing; run this once as root, or install sudo:" $missing
      as_root=(sudo)
    fi
    say "installing $(wc -w <<<"$missing") packages:" $missing
    export DEBIAN_FRONTEND=noninteractive
    "${as_root[@]}" apt-get -q update >&2 || fail "apt-get update failed: check the network and the package sources."
    "${as_root[@]}" apt-get -q install -y --no-install-recommends $missing >&2 || fail "the packages above could not be installed."
  fi
  mkdir -p "$root/build" && cp "$list" "$stamp"
}

# build PRESET [TARGET...]: configures on first use, then builds what changed. Quiet when nothing did.
build() {
  local preset=$1 dir=$root/build/$1 log line said=
  shift
  log=$dir/build.log
  mkdir -p "$dir"
  if [ ! -f "$dir/build.ninja" ]; then
    say "configuring ($preset)"
    (cd "$root" && cmake --preset "$preset" >"$log" 2>&1) || { cat "$log" >&2; fail "configuring failed."; }
  fi
  # Whether there is anything to do shows with the first step. A terminal gets the steps on one line.
  if ninja -C "$dir" "$@" </dev/null 2>&1 | tee "$log" | {
    while IFS= read -r line; do
      case $line in
        *"Re-checking globbed directories"* | *"Re-running CMake"*) ;;
        "["*)
          [ "$said" ] || say "building ($preset): some minutes the first time"
          said=yes
          [ ! -t 2 ] || printf '\r\033[K%.79s' "$line" >&2
          ;;
      esac
    done
    [ -z "$said" ] || [ ! -t 2 ] || printf '\r\033[K' >&2
  }; then return; fi
  # One line a step is too much: these tell what went wrong.
  grep -E -A12 'FAILED|error' "$log" | head -80 >&2
  fail "the build failed; the whole of it is in build/${dir##*/}/build.log."
}
