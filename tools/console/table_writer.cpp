#include "tools/console/terminal.h"
#include "tools/console/writers.h"
#include "tools/utf8.h"

#include <algorithm>
#include <array>

namespace orvel::console {

std::wstring Reasons(const Collection& collection)
{
    std::wstring reasons;
    for (const std::wstring& line : collection.infoLines) {
        reasons += L"    " + Printable(line) + L"\n";
    }
    return reasons;
}

std::string ToTable(const Collection& collection, size_t width)
{
    constexpr size_t kNarrowest = 40;     // least width of the column of values
    constexpr size_t kShortInstance = 20; // width of the column of instances if the values would get less
    using Row = std::array<std::wstring, 3>;
    std::vector<Row> rows = {{L"KEY", L"INSTANCE", L"VALUE"}};
    size_t keyWidth = Width(rows[0][0]);
    size_t instanceWidth = Width(rows[0][1]);
    for (const MetricValue& value : collection.values) {
        const Row& row =
            rows.emplace_back(Row{Printable(value.key), Printable(value.instance),
                                  value.type == VT_UI8 ? std::to_wstring(value.number) : Printable(value.text)});
        keyWidth = std::max(keyWidth, Width(row[0]));
        instanceWidth = std::max(instanceWidth, Width(row[1]));
    }

    std::wstring table =
        Marked(kHeading, L"Collection " + std::to_wstring(collection.number) + L": " + collection.metric) + L"\n";
    if (collection.values.empty()) {
        return ToUtf8(table + L"  nothing written\n" + Reasons(collection) + L"\n");
    }
    constexpr size_t kBelow = 6;
    const bool isNarrow = width != 0 && width < 2 + keyWidth + 2 + instanceWidth + 2 + kNarrowest;
    instanceWidth = isNarrow ? std::min(instanceWidth, kShortInstance) : instanceWidth;
    const size_t column = 2 + keyWidth + 2 + instanceWidth + 2;
    for (const Row& row : rows) {
        // A value that does not fit beside its key is written below it.
        const bool isBelow = isNarrow && (Width(row[1]) > instanceWidth || width <= column ||
                                          Wrapped(row[2], width - column, 0) != row[2]);
        const size_t indent = isBelow ? kBelow : column;
        table += L"  " + Padded(row[0], keyWidth) + L"  ";
        table += isBelow ? row[1] + L"\n" + std::wstring(kBelow, L' ') : Padded(row[1], instanceWidth) + L"  ";
        table += Wrapped(row[2], width > indent ? width - indent : 0, indent) + L"\n";
    }
    return ToUtf8(table + DrawTimeline(collection, width) + L"\n");
}

} // namespace orvel::console
