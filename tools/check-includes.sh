#!/usr/bin/env bash
# Fails when a core folder includes one above it, so the import graph stays without a circle:
# effects < state < modulation < engine. The two host headers that only declare the host's records and
# base class sit below all of them.
set -euo pipefail
cd "$(dirname "$0")/.."

rank() {
    case "$1" in
    effects) echo 0 ;;
    state) echo 1 ;;
    modulation) echo 2 ;;
    engine) echo 3 ;;
    *) echo 9 ;;
    esac
}

status=0
for folder in effects state modulation engine; do
    own=$(rank "$folder")
    while IFS=: read -r file line text; do
        target=$(sed -E 's/.*#include "([^"]*)".*/\1/' <<<"$text")
        case "$target" in
        host/AFPluginTypes.h | host/AFPluginBase.h) continue ;;
        esac
        if [ "$(rank "${target%%/*}")" -gt "$own" ]; then
            echo "$file:$line: $folder/ includes $target"
            status=1
        fi
    done < <(git ls-files "$folder/*.cpp" "$folder/*.h" | xargs grep -Hn '^#include "' || true)
done
exit $status
