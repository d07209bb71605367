# Shared by ./run, ./test and .ci/run; sourced by bash from the project's root.

say() { printf '== %s\n' "$*" >&2; }
die() {
  printf '%s: %s\n' "$(basename "$0")" "$*" >&2
  exit 1
}

morePackages=() # of what not everybody does
packages() {
  sed -e 's/#.*//' -e '/^[[:space:]]*$/d' scripts/packages.txt | awk '{print $1}'
  ((${#morePackages[@]} == 0)) || printf '%s\n' "${morePackages[@]}"
}
# What making and looking at Debian packages needs.
packagingPackages=(debhelper help2man lintian)

missingPackages() {
  local installed
  # One query for all; an unknown package makes dpkg-query fail, the others are still listed.
  installed=$(dpkg-query -W -f '${Package} ${db:Status-Status}\n' $(packages) 2>/dev/null |
    awk '$2 == "installed" {print $1}' || true)
  packages | grep -vxF -e "$installed" || true
}

# Installs what scripts/packages.txt names and the machine lacks; touches nothing when all is there.
ensurePackages() {
  local missing root=()
  command -v dpkg-query >/dev/null ||
    die "this is not a Debian machine; install what scripts/packages.txt names by hand"
  missing=$(missingPackages | xargs)
  [[ -z $missing ]] && return
  say "missing packages: $missing"
  if [[ $(id -u) != 0 ]]; then
    command -v sudo >/dev/null || die "neither root nor sudo; install these packages and try again: $missing"
    root=(sudo)
  fi
  local apt=("${root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get -q -o Acquire::Retries=1)
  say "reading the package lists (apt-get update)"
  "${apt[@]}" update >&2 || say "the package lists could not be renewed; trying with those at hand"
  say "installing: $missing"
  "${apt[@]}" install -y --no-install-recommends $missing >&2 ||
    die "cannot install; is the machine offline? Install these packages and try again: $missing"
}

preset=release
jobs=$(nproc)
werror=OFF

# takeOption ARGS...: handles one common option; `taken` tells how many arguments it was (0: not a common one).
takeOption() {
  taken=2
  case $1 in
    --preset) [[ -n ${2:-} ]] || die "--preset needs a name"; preset=$2 ;;
    --preset=*) preset=${1#*=} taken=1 ;;
    -j) [[ ${2:-} =~ ^[1-9][0-9]*$ ]] || die "-j needs a number"; jobs=$2 ;;
    -j[1-9]*) [[ ${1#-j} =~ ^[0-9]+$ ]] || die "-j needs a number"; jobs=${1#-j} taken=1 ;;
    --werror) werror=ON taken=1 ;;
    *) taken=0 ;;
  esac
}

# Configures build/$preset, when there is a reason to; ninja looks after changes of the CMake files.
configure() {
  local dir=build/$preset stamp
  grep -q "\"name\": \"$preset\"" CMakePresets.json && [[ $preset != base ]] ||
    die "no preset '$preset'; there are: $(presets)"
  stamp="KTD_WERROR=$werror"
  if [[ -f $dir/build.ninja && $(cat "$dir/.configured" 2>/dev/null) == "$stamp" &&
    ! CMakePresets.json -nt $dir/.configured ]]; then
    return
  fi
  say "configuring $dir"
  cmake --preset "$preset" "-D$stamp" >&2 || die "cmake failed"
  echo "$stamp" >"$dir/.configured"
}

presets() { sed -n 's/^ *"name": "\([a-z]*\)",$/\1/p' CMakePresets.json | grep -vx base | xargs; }

build() { # TARGET...
  say "building $* ($preset)"
  ninja -C "build/$preset" -j "$jobs" "$@" >&2 || die "the build failed"
}
