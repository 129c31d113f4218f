#!/bin/bash
# Checks the pages: links lead to existing files and headings, every page is linked, and every log line and value in the
# code is documented.
set -euo pipefail
cd "$(dirname "$0")/../.."
failed=0
fail() {
    echo "$*"
    failed=1
}
pages=(README.md CONTRIBUTING.md CHANGELOG.md SECURITY.md docs/*.md)
# Prints the anchors of a page's headings, as GitHub generates them.
anchors() { sed -n '/^```/,/^```/d; s/^##* //p' "$1" | tr '[:upper:]' '[:lower:]' | sed 's/[^a-z0-9 _-]//g; s/ /-/g'; }

linked=README.md
for page in "${pages[@]}"; do
    while read -r link; do
        file=${link%%#*} anchor=${link#"${link%%#*}"}
        target=$(realpath -m --relative-to=. "$(dirname "$page")/$file")
        [ -n "$file" ] || target=$page
        if [ ! -e "$target" ]; then
            fail "$page: the link $link leads nowhere"
        elif [ -n "$anchor" ] && ! anchors "$target" | grep -qxF -- "${anchor#\#}"; then
            fail "$page: $target has no heading for $anchor"
        fi
        linked+=$'\n'$target
    done < <(grep -o '](\(\.\.\/\|#\|[A-Za-z]\)[^):]*)' "$page" | sed 's/^](//; s/)$//')
    # File names in the text.
    while read -r file; do
        compgen -G "$file*" >/dev/null || fail "$page: $file does not exist"
    done < <(grep -o '`\(host\|metric\|appcrash\|lamina\|provider\|module\|tools\|tests\|samples\|cmake\|docs\)/[a-z0-9_./-]*`' "$page" | tr -d '`')
done
for page in "${pages[@]}"; do
    grep -qxF "$page" <<<"$linked" || fail "$page: no page links here"
done

# explained PAGE: reads texts, each of which the page must contain. Tables in pages escape |.
explained() {
    local text count=0 page
    page=$(sed 's/\\|/|/g' "$1")
    while read -r text; do
        count=$((count + 1))
        [[ $page == *"$text"* ]] || fail "$1: does not explain: $text"
    done
    [ $count -gt 10 ] || fail "$1: only $count texts were found in the sources"
}
sources=(host/property.cpp provider/provider.cpp appcrash/app_crash_metric.cpp
    lamina/lamina_metric.cpp lamina/lamina_log_collector.cpp)
# Log lines: texts of several words, or of one capitalized word that is the only argument; not paths, names and markers.
grep -hoP '(Log|LogInfo|LogError|LogFailure)\((.*, )?L"\K[^"]+|^ *L"\K[A-Z][^"|\\]* [^"]+' "${sources[@]}" |
    explained docs/operations.md
{
    grep -hoP 'L"\K(appcrash|lamina)\|[^"]+' "${sources[@]}"
    grep -oP 'L"\Keventlog\|[^"]+' provider/metric_factory.cpp
    grep -oP '^    \{L"\K[^"]+' lamina/agent_event.cpp
} | explained docs/metrics.md
exit $failed
