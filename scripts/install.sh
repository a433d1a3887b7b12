#!/usr/bin/env bash
# Puts the release build under a prefix, or removes what that has put there.
# Usage: scripts/install.sh install PREFIX | uninstall      both in DESTDIR, if that is set
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

# One for each DESTDIR.
LIST=build/installed_files$(tr / _ <<<"${DESTDIR:-}").txt
readonly LIST
case ${1:-} in
  install)
    cmake --install build/release --prefix "$2" --strip
    # The list of every installation, that of `make package` too, has one name.
    cp build/release/install_manifest.txt "$LIST"
    ;;
  uninstall)
    [[ -s $LIST ]] || {
      printf 'nothing has been installed from here\n' >&2
      exit 1
    }
    mapfile -t files <"$LIST"
    files=("${files[@]/#/${DESTDIR:-}}")
    rm -fv -- "${files[@]}"
    # Folders of its own, not those of the system.
    printf '%s\n' "${files[@]%/*}" | grep -iE '/zvqrn$' | sort -u | xargs -d '\n' rmdir -v --
    rm -- "$LIST"
    ;;
  *)
    printf 'usage: scripts/install.sh install PREFIX | uninstall\n' >&2
    exit 2
    ;;
esac
# Programs find a library in the system's folders only after this.
[[ -n ${DESTDIR:-} || $(id -u) -ne 0 ]] || ldconfig
