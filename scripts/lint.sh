#!/usr/bin/env bash
# Checks the layout of every source file, the code of the library, the tools, the benchmarks and the
# simulated machine with clang-tidy, the scripts, and that the floors of src/ include downwards only.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

mapfile -t sources < <(find src include tools tests bench fuzz simulation examples packaging \
  -name '*.c' -o -name '*.cpp' -o -name '*.h' -o -name '*.hpp' | sort)
clang-format --dry-run --Werror "${sources[@]}"
shellcheck scripts/*.sh .ci/run tools/completion/quorin.bash

# A file may include files of its own floor or of a floor below.
declare -A floors=([platform]=1 [base]=2 [eventproto]=3 [discovery]=3 [pushscan]=4 [eventserver]=5
  [service]=6)
broken=0
while IFS=: read -r file included; do
  room=${file#src/}
  if [[ ${floors[${included%%/*}]} -gt ${floors[${room%%/*}]} && $file != *release_item.cpp ]]; then
    printf '%s includes %s, which is on a floor above\n' "$file" "$included" >&2
    broken=1
  fi
done < <(grep -rEo '^#include "(platform|base|eventproto|discovery|pushscan|eventserver|service)/[^"]+' \
  src | sed 's/#include "//')
# So may a room of quorin-scanner; rooms of one floor do not know each other.
declare -A rooms=([command]=1 [wire]=2 [search]=3 [exchange]=3 [doctor]=4 [stress]=4 [explain]=4
  [panel]=5)
while IFS=: read -r file included; do
  room=${file#tools/scanner/}
  room=${room%%/*}
  included=${included%%/*}
  if [[ $room != main.cpp && $room != "$included" && ! ${rooms[$included]} -lt ${rooms[$room]} ]]; then
    printf '%s includes scanner/%s, which is not on a floor below\n' "$file" "$included" >&2
    broken=1
  fi
done < <(grep -rEo '^#include "scanner/[^"]+' tools | sed 's/#include "scanner\///')
if grep -rnE '^#include "(host|scanner)/' tools/common; then
  printf 'tools/common includes what builds on it\n' >&2
  broken=1
fi
[[ $broken -eq 0 ]]

# The operating system shows in src/platform/ only.
if grep -rnE '^#include <(windows|winsock|ws2|unistd|sys/|netinet|arpa|pthread|dlfcn|poll)|_WIN32' \
  src --include='*.h' --include='*.cpp' | grep -v '^src/platform/'; then
  printf 'the operating system shows outside src/platform/\n' >&2
  exit 1
fi

# Looks at what a preset compiles from the folders of a pattern, as it compiles it (many files
# included into one take a third of the time), but for what the tests compile with settings of their
# own.  Paths are followed into functions of this repository, not into those of the C++ library, and
# as many STEPS as given: around the library not as far as in it.
tidy() {
  local preset=$1 steps=$2 folders=$3 option options=() database
  for option in c++-stdlib-inlining=false "max-nodes=$steps"; do
    options+=(--extra-arg=-Xclang --extra-arg=-analyzer-config
      --extra-arg=-Xclang "--extra-arg=$option")
  done
  database=build/$preset/compile_commands.json
  if [[ ! -e $database || -n $(git ls-files '*CMakeLists.txt' '*.cmake' CMakePresets.json |
    xargs -I{} find {} -newer "$database") ]]; then
    cmake --preset "$preset" >/dev/null
  fi
  python3 -c 'import json, sys
for command in json.load(open(sys.argv[1])):
    if " -o tests/" not in command["command"]:
        print(command["file"].removeprefix(sys.argv[2] + "/"))' \
    "$database" "$PWD" >"build/$preset/compiled_files"
  # The files that include others lie among what is built, in folders that are called alike.
  grep -E "^(build/$preset/)?($folders)/" "build/$preset/compiled_files" | sed "s|^|$PWD/|" |
    xargs -n 1 -P "$(nproc)" clang-tidy --quiet -p "build/$preset" "${options[@]}" \
      --checks=-bugprone-suspicious-include --extra-arg=-Wno-unknown-warning-option 2>/dev/null
}
tidy bench 20000 bench
tidy asan 225000 'src|CMakeFiles'
tidy asan 20000 tools
tidy simulation 20000 simulation
