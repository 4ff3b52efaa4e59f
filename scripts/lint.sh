#!/usr/bin/env bash
# Checks the sources' form: layout with clang-format, mistakes with clang-tidy.
set -euo pipefail
cd "$(dirname "$0")/.."

usage() {
  cat <<'USAGE'
usage: scripts/lint.sh format
       scripts/lint.sh tidy BUILD_FOLDER [WINDOWS_BUILD_FOLDER]

  format  fails when clang-format would change a source (mend with: clang-format -i FILE)
  tidy    fails on any finding; BUILD_FOLDER is one that clang built, for its compile commands;
          WINDOWS_BUILD_FOLDER one of mingw-w64, for the sources that only Windows has
USAGE
}

case "${1:-}" in
  format)
    find bench encoder examples include platform src tests tools -name '*.h' -o -name '*.cpp' -o -name '*.c' | sort | xargs clang-format --dry-run -Werror
    ;;
  tidy)
    [ -e "${2:?$(usage)}/compile_commands.json" ] || { echo "no compile commands in $2; build it first" >&2; exit 1; }
    scripts/tidy-commands.py build/tidy "${@:2}"
    run-clang-tidy -quiet -p build/tidy
    ;;
  -h | --help) usage ;;
  *) usage >&2; exit 2 ;;
esac
