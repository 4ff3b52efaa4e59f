#!/usr/bin/env bash
# Checks the sources: layout with clang-format, static analysis with clang-tidy, and wording.
set -euo pipefail
cd "$(dirname "$0")/.."

usage() {
  cat <<'USAGE'
usage: scripts/lint.sh format
       scripts/lint.sh tidy BUILD_FOLDER [WINDOWS_BUILD_FOLDER]
       scripts/lint.sh words

  format  fails if clang-format would change a source (fix with: clang-format -i FILE)
  tidy    fails on any finding of clang-tidy; BUILD_FOLDER was built with clang and contains its compile commands;
          WINDOWS_BUILD_FOLDER was built with mingw-w64, for the Windows-only sources
  words   fails if a tracked text file contains a word or name in scripts/old-words.txt; prints the replacements
USAGE
}

case "${1:-}" in
  format)
    find bench encoder examples include platform src tests tools -name '*.h' -o -name '*.cpp' -o -name '*.c' | sort |
      xargs clang-format --dry-run -Werror
    ;;
  tidy)
    [ -e "${2:?$(usage)}/compile_commands.json" ] || { echo "no compile commands in $2; build it first" >&2; exit 1; }
    scripts/tidy-commands.py build/tidy "${@:2}"
    run-clang-tidy -quiet -p build/tidy
    ;;
  words) scripts/check-words.py ;;
  -h | --help) usage ;;
  *) usage >&2; exit 2 ;;
esac
