# What the scripts share; sourced, never run. Leaves the shell in the project's root.
set -euo pipefail
unset CDPATH
cd "$(dirname "${BASH_SOURCE[0]}")/.."
readonly projectRoot=$PWD

Fail() {
  printf '%s: %s\n' "${0##*/}" "$*" >&2
  exit 1
}

# The same for a command line that can't be meant.
FailUsage() {
  printf '%s: %s\n' "${0##*/}" "$*" >&2
  exit 2
}

Say() { printf '== %s\n' "$*" >&2; }

# Fails unless there is a preset of that name.
CheckPreset() {
  case $1 in
    dev | release | sanitize | fuzz) ;;
    *) FailUsage "unknown preset \"$1\": dev, release, sanitize or fuzz" ;;
  esac
}

# Says why a step of the build has failed, where that is the machine's fault, and what to do.
FailBuild() {
  local step=$1 folder freeKilobytes
  for folder in build . "${TMPDIR:-/tmp}"; do
    freeKilobytes=$(df --output=avail -k "$folder" 2>/dev/null | tail -1) || continue
    # A compiler that found no room has taken its own file away again.
    if ((freeKilobytes < 20480)); then
      Fail "the disk of $(realpath "$folder") is full: make room and run it again, it goes on where it was"
    fi
  done
  Fail "$step failed for the reason above: run it again once that is mended, it goes on where it was"
}

# Configures a preset and builds the named targets, or all of them. A build that was interrupted
# goes on where it was. `warnings` makes no program, so that nobody may ask for it.
BuildPreset() {
  local preset=$1 compiler=${CXX:-c++} package='apt-get install g++, or set CXX to the one to use'
  shift
  [[ $preset == warnings ]] || CheckPreset "$preset"
  case $preset in
    fuzz | sanitize) compiler=clang++ package=scripts/install-deps ;;
    warnings) compiler=g++ package=scripts/install-deps ;;
  esac
  # CXX may have words behind the program.
  command -v "${compiler%% *}" >/dev/null || Fail "there is no compiler \"$compiler\": $package"
  mkdir -p build || FailBuild "the making of $projectRoot/build"
  if command -v ccache >/dev/null; then
    export CMAKE_CXX_COMPILER_LAUNCHER=ccache
  fi
  # CMake would take over that one's cache without the preset's settings.
  if [[ -f build/$preset/CMakeCache.txt && $preset != dev && $preset != release ]] &&
    ! grep -q "^CMAKE_CXX_COMPILER:.*[/=]${compiler}\$" "build/$preset/CMakeCache.txt"; then
    rm -rf "build/$preset/CMakeCache.txt" "build/$preset/CMakeFiles"
  fi
  Say "configure $preset"
  cmake --preset "$preset" -DQMT_ALLOW_UNLISTED=OFF >&2 || FailBuild "the configuring"
  Say "build $preset"
  cmake --build --preset "$preset" --parallel "$(nproc)" ${1:+--target "$@"} >&2 ||
    FailBuild "the build"
}

# The C++ files that belong to the project: tracked ones and new ones, each ended by a zero byte.
# The record declarations (*.def) are tables and keep their columns, so they are not among them.
ListSources() {
  git ls-files -z --cached --others --exclude-standard -- '*.h' '*.cpp' |
    while IFS= read -r -d '' file; do
      if [[ -f $file ]]; then printf '%s\0' "$file"; fi
    done
}
