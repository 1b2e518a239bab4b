# What the scripts share; sourced, never run. Leaves the shell in the project's root.
set -euo pipefail
unset CDPATH
cd "$(dirname "${BASH_SOURCE[0]}")/.."
readonly projectRoot=$PWD

Fail() {
  printf '%s: %s\n' "${0##*/}" "$*" >&2
  exit 1
}

Say() { printf '== %s\n' "$*" >&2; }

# Configures a preset and builds the named targets, or all of them.
BuildPreset() {
  local preset=$1
  shift
  if command -v ccache >/dev/null; then
    export CMAKE_CXX_COMPILER_LAUNCHER=ccache
  fi
  Say "configure $preset"
  cmake --preset "$preset" -DQMT_ALLOW_UNLISTED=OFF >&2
  Say "build $preset"
  cmake --build --preset "$preset" --parallel "$(nproc)" ${1:+--target "$@"} >&2
}

# The C++ files that belong to the project: tracked ones and new ones, each ended by a zero byte.
# The record declarations (*.def) are tables and keep their columns, so they are not among them.
ListSources() {
  git ls-files -z --cached --others --exclude-standard -- '*.h' '*.cpp' |
    while IFS= read -r -d '' file; do
      if [[ -f $file ]]; then printf '%s\0' "$file"; fi
    done
}
