#include "tools/console/text.h"
#include "tools/console/writers.h"

#include <algorithm>

namespace orvel::console {

namespace {

size_t Width(const std::wstring& text)
{
    const auto isSecondHalf = [](wchar_t unit) { return unit >= 0xDC00 && unit <= 0xDFFF; };
    return text.size() - static_cast<size_t>(std::count_if(text.begin(), text.end(), isSecondHalf));
}

std::wstring Padded(const std::wstring& text, size_t width)
{
    const size_t own = Width(text);
    return text + std::wstring(own < width ? width - own : 0, L' ');
}

} // namespace

std::wstring Printable(std::wstring text)
{
    for (const std::wstring& lineBreak : {std::wstring(L"<br />"), std::wstring(L"\r\n")}) {
        for (size_t at = text.find(lineBreak); at != text.npos; at = text.find(lineBreak, at)) {
            text.replace(at, lineBreak.size(), L"\n");
        }
    }
    for (wchar_t& unit : text) {
        if (unit != L'\n' && (unit < 0x20 || (unit >= 0x7F && unit < 0xA0))) {
            unit = 0xFFFD;
        }
    }
    return text;
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
    struct Row {
        std::wstring key, instance, value;
    };
    std::vector<Row> rows = {{L"KEY", L"INSTANCE", L"VALUE"}};
    size_t keyWidth = 0;
    size_t instanceWidth = 0;
    for (const MetricValue& value : collection.values) {
        rows.push_back({Printable(value.key), Printable(value.instance),
                        value.type == VT_UI8 ? std::to_wstring(value.number) : Printable(value.text)});
    }
    for (const Row& row : rows) {
        keyWidth = std::max(keyWidth, Width(row.key));
        instanceWidth = std::max(instanceWidth, Width(row.instance));
    }

    std::wstring table = L"Collection " + std::to_wstring(collection.number) + L": " + collection.metric + L"\n";
    if (collection.values.empty()) {
        return ToUtf8(table + L"  nothing written\n" + Reasons(collection) + L"\n");
    }
    const std::wstring indent(2 + keyWidth + 2 + instanceWidth + 2, L' ');
    for (Row& row : rows) {
        for (size_t at = row.value.find(L'\n'); at != row.value.npos; at = row.value.find(L'\n', at + 1)) {
            row.value.insert(at + 1, indent);
        }
        table +=
            L"  " + Padded(row.key, keyWidth) + L"  " + Padded(row.instance, instanceWidth) + L"  " + row.value + L"\n";
    }
    return ToUtf8(table + DrawTimeline(collection) + L"\n");
}

} // namespace orvel::console
