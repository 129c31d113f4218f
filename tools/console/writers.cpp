#include "tools/console/writers.h"

#include "host/format.h"
#include "tools/console/terminal.h"
#include "tools/utf8.h"

#include <algorithm>
#include <array>

namespace orvel::console {

std::string Quote(std::wstring_view text)
{
    constexpr std::wstring_view kEscaped = L"\"\\\r\n\t";
    constexpr std::wstring_view kEscapes = L"\"\\rnt";
    std::wstring json = L"\"";
    for (size_t i = 0; i < text.size(); ++i) {
        const wchar_t unit = text[i];
        const size_t escape = kEscaped.find(unit);
        if (escape != kEscaped.npos) {
            json.append({L'\\', kEscapes[escape]});
        } else if (IS_HIGH_SURROGATE(unit) && i + 1 < text.size() && IS_LOW_SURROGATE(text[i + 1])) {
            json.append({unit, text[++i]});
        } else if (unit < 0x20 || IS_HIGH_SURROGATE(unit) || IS_LOW_SURROGATE(unit)) {
            json += FormatString(L"\\u%04x", static_cast<unsigned>(unit));
        } else {
            json += unit;
        }
    }
    return ToUtf8(json += L'"');
}

std::string ToJsonLines(const Collection& collection)
{
    const std::string start =
        "{\"collection\":" + std::to_string(collection.number) + ",\"metric\":" + Quote(collection.metric);
    std::string lines;
    for (const MetricValue& value : collection.values) {
        lines += start + ",\"key\":" + Quote(value.key) + ",\"instance\":" + Quote(value.instance);
        lines += value.type == VT_BSTR ? ",\"type\":\"VT_BSTR\",\"value\":" + Quote(value.text)
                                       : ",\"type\":\"VT_UI8\",\"value\":" + std::to_string(value.number);
        lines += "}\n";
    }
    return lines;
}

std::wstring Reasons(const Collection& collection)
{
    std::wstring reasons;
    for (const std::wstring& line : collection.infoLines) {
        reasons += L"    " + Printable(line) + L"\n";
    }
    return reasons;
}

std::string ToTable(const Collection& collection)
{
    constexpr size_t kNarrowest = 40;     // least width of the column of values
    constexpr size_t kShortInstance = 20; // width of the column of instances if the values would get less
    using Row = std::array<std::wstring, 3>;
    const size_t width = TerminalWidth();
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
