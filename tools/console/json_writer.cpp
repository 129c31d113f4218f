#include "host/format.h"
#include "tools/console/writers.h"
#include "tools/utf8.h"

namespace orvel::console {

namespace {

void AppendQuoted(std::wstring& json, std::wstring_view text)
{
    json += L'"';
    for (size_t i = 0; i < text.size(); ++i) {
        const wchar_t unit = text[i];
        if (unit == L'"' || unit == L'\\') {
            json.append({L'\\', unit});
        } else if (unit == L'\r') {
            json += L"\\r";
        } else if (unit == L'\n') {
            json += L"\\n";
        } else if (unit == L'\t') {
            json += L"\\t";
        } else if (IS_HIGH_SURROGATE(unit) && i + 1 < text.size() && IS_LOW_SURROGATE(text[i + 1])) {
            json.append({unit, text[++i]});
        } else if (unit < 0x20 || IS_HIGH_SURROGATE(unit) || IS_LOW_SURROGATE(unit)) {
            json += FormatString(L"\\u%04x", static_cast<unsigned>(unit));
        } else {
            json += unit;
        }
    }
    json += L'"';
}

} // namespace

std::string Quote(std::wstring_view text)
{
    std::wstring json;
    AppendQuoted(json, text);
    return ToUtf8(json);
}

std::string ToJsonLines(const Collection& collection)
{
    std::wstring start = L"{\"collection\":" + std::to_wstring(collection.number) + L",\"metric\":";
    AppendQuoted(start, collection.metric);
    std::string lines;
    std::wstring line; // kept for its memory
    for (const MetricValue& value : collection.values) {
        line = start;
        line += L",\"key\":";
        AppendQuoted(line, value.key);
        line += L",\"instance\":";
        AppendQuoted(line, value.instance);
        if (value.type == VT_BSTR) {
            line += L",\"type\":\"VT_BSTR\",\"value\":";
            AppendQuoted(line, value.text);
        } else {
            line += L",\"type\":\"VT_UI8\",\"value\":" + std::to_wstring(value.number);
        }
        line += L"}\n";
        lines += ToUtf8(line);
    }
    return lines;
}

} // namespace orvel::console
